#include <draizu/api/LN_ApiHandler.h>

using namespace Qt::StringLiterals;

LN_ApiHandler::LN_ApiHandler() = default;

LN_ApiHandler::~LN_ApiHandler() = default;

void LN_ApiHandler::exec(LN_ApiRequest * request, QJsonArray const & args, QJsonObject const & kwargs)
{
    if (!invoker_) {
        request->fail(LN_ApiRequest::Result_ServerError, u"Bad API function"_s);
        return;
    }
    invoker_->call(*this, request, args, kwargs);
}

bool LN_ApiHandler::isValid() const
{
    return invoker_ && invoker_->argumentCount() == params_.size();
}

QJsonValue LN_ApiHandler::argument(qsizetype index, QJsonArray const & args, QJsonObject const & kwargs) const
{
    if (index < args.size())
        return args.at(index);
    if (index >= params_.size())
        throw LN_ApiHandlerValueException();
    QString const & name = params_.at(index).name;
    if (auto const found = kwargs.constFind(name); found != kwargs.constEnd())
        return *found;
    QVariant const fallback = paramDefault(name);
    if (!fallback.isValid())
        throw LN_ApiHandlerValueException();
    return QJsonValue::fromVariant(fallback);
}

void LN_ApiHandler::setParams_(std::initializer_list<Param> const & params)
{
    params_.clear();
    for (Param const & param : params)
        params_.append(param);
}
