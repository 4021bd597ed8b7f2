#pragma once

#include <draizu/draizu_export.h>

#include <QMetaObject>
#include <QObject>
#include <QPointer>

class LN_ApiRequest;

/// The guard against a function that forgets to answer. Made on the function's stack at the
/// start of its work, it fails a request still open when it goes out of scope with status 500
/// "Request never sent a result for request.". `releaseResponseChecks` on the request disarms it.
class DRAIZU_EXPORT LN_AutoApiRequest : public QObject
{
    Q_OBJECT

public:
    explicit LN_AutoApiRequest(LN_ApiRequest * request);
    ~LN_AutoApiRequest() override;

private:
    QPointer<LN_ApiRequest> request_;
    QMetaObject::Connection release_;
};
