#pragma once

#include <draizu/draizu_export.h>

#include <QList>
#include <QString>
#include <QVariant>

class LN_ApiRequest;
class QJsonArray;
class QJsonObject;

/// An API function as the engine sees it: a name, declared parameters, and the calls the
/// engine makes. Functions are shared between the engine's table and its queued requests.
class DRAIZU_EXPORT LN_IApiHandler
{
public:
    struct Param
    {
        QString name;
        /// The value when the argument is not given; an invalid QVariant means none.
        QVariant defaultValue;
    };

    virtual ~LN_IApiHandler();

    /// Called when the function enters the engine's table.
    virtual void onRegister();
    virtual void exec(LN_ApiRequest * request, QJsonArray const & args, QJsonObject const & kwargs) = 0;
    /// By default rejects with "Cancel not supported for api function.". A function that can
    /// stop accepts through the request's `cancel` or `cancelAndComplete`.
    virtual void cancel(LN_ApiRequest * request);
    virtual bool isValid() const = 0;

    QString name() const { return name_; }
    QList<Param> params() const { return params_; }
    explicit operator bool() const { return isValid(); }

    /// The default of the first parameter of that exact name, or an invalid QVariant.
    QVariant paramDefault(QString const & name) const;

protected:
    LN_IApiHandler() = default;
    LN_IApiHandler(QString const & name, QList<Param> const & params);

    QString name_;
    QList<Param> params_;
};
