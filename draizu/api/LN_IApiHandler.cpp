#include <draizu/api/LN_IApiHandler.h>

#include <draizu/api/LN_ApiRequest.h>

using namespace Qt::StringLiterals;

LN_IApiHandler::LN_IApiHandler(QString const & name, QList<Param> const & params)
    : name_(name)
    , params_(params)
{
}

LN_IApiHandler::~LN_IApiHandler() = default;

void LN_IApiHandler::onRegister()
{
}

void LN_IApiHandler::cancel(LN_ApiRequest * request)
{
    request->cancel(LN_ApiRequest::Cancel_Rejected, u"Cancel not supported for api function."_s);
}

QVariant LN_IApiHandler::paramDefault(QString const & name) const
{
    for (Param const & param : params_) {
        if (param.name == name)
            return param.defaultValue;
    }
    return {};
}
