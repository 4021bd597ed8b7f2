#pragma once

#include <draizu/draizu_export.h>

#include <QMetaObject>
#include <QObject>
#include <QPointer>

class LN_ApiRequest;

/// The guard against a function that forgets to answer. Made on the function's stack at the
/// start of its work, it fails a request still open when it goes out of scope, by return or by
/// exception, with status 500 "Request never sent a result for request.", which frees the
/// engine's queue. It watches the request by QPointer and owns nothing; a request that is gone,
/// has completed or has called `releaseResponseChecks` is left alone. Throws nothing. Use on the
/// request's thread.
class DRAIZU_EXPORT LN_AutoApiRequest : public QObject
{
    Q_OBJECT

public:
    /// Guards the request from now on.
    explicit LN_AutoApiRequest(LN_ApiRequest * request);
    /// Fails the request if it is still there, still open and not released.
    ~LN_AutoApiRequest() override;

private:
    QPointer<LN_ApiRequest> request_;
    QMetaObject::Connection release_;
};
