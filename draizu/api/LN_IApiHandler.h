#pragma once

#include <draizu/draizu_export.h>

#include <QList>
#include <QString>
#include <QVariant>

class LN_ApiRequest;
class QJsonArray;
class QJsonObject;

/// An API function as the engine sees it: a name, declared parameters, and the calls the
/// engine makes. A function is shared by QSharedPointer between the engine's table and the
/// requests queued for it, and lives as long as either holds it. The engine catches nothing a
/// function throws: exceptions of exec pass out to the front, which reports them as EXCEPTION.
/// Called on the engine's thread only.
class DRAIZU_EXPORT LN_IApiHandler
{
public:
    /// One declared parameter: its name in named arguments and its default.
    struct Param
    {
        /// The name that named arguments use.
        QString name;
        /// The value when the argument is not given; an invalid QVariant means none.
        QVariant defaultValue;
    };

    virtual ~LN_IApiHandler();

    /// Called when the function enters the engine's table; does nothing by default.
    virtual void onRegister();
    /// Runs the function for a request, which it must answer now or later through the request;
    /// may throw, and the exception reaches the front.
    virtual void exec(LN_ApiRequest * request, QJsonArray const & args, QJsonObject const & kwargs) = 0;
    /// Asked to stop the request; by default rejects with "Cancel not supported for api
    /// function.". A function that can stop accepts through the request's `cancel` or
    /// `cancelAndComplete`.
    virtual void cancel(LN_ApiRequest * request);
    /// False refuses every request for the function with status 500 "Function found is
    /// invalid.".
    virtual bool isValid() const = 0;

    /// The name requests call the function by, compared case-sensitively.
    QString name() const { return name_; }
    /// The declared parameters, in order.
    QList<Param> params() const { return params_; }
    /// isValid.
    explicit operator bool() const { return isValid(); }

    /// The default of the first parameter of that exact name, or an invalid QVariant.
    QVariant paramDefault(QString const & name) const;

protected:
    /// A function with no name and no parameters.
    LN_IApiHandler() = default;
    /// A function with a name and parameters, kept as given.
    LN_IApiHandler(QString const & name, QList<Param> const & params);

    /// The name that name() returns.
    QString name_;
    /// The parameters that params() returns.
    QList<Param> params_;
};
