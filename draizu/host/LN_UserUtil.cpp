#include <draizu/host/LN_UserUtil.h>

#include <draizu/platform/LN_Accounts_p.h>
#include <draizu/platform/LN_Sid.h>

#include <new>

using namespace Qt::StringLiterals;

namespace {

using Lookup = int (*)(QString const &, LN_Sid *);

LN_Result<std::unique_ptr<char[]>> lookup(Lookup find, QString const & name)
{
    LN_Sid sid;
    if (int const error = find(name, &sid); error != 0)
        return LN_ErrorStruct{std::error_code(error, std::generic_category()), u"Error number %1"_s.arg(error)};
    auto bytes = std::make_unique<char[]>(sizeof(LN_Sid));
    new (bytes.get()) LN_Sid(sid);
    return LN_Result<std::unique_ptr<char[]>>(std::move(bytes));
}

} // namespace

QString LN_UserUtil::getCurrentUserName()
{
    return LN_Accounts::currentUserName();
}

LN_Result<std::unique_ptr<char[]>> LN_UserUtil::getUserFromName(QString const & name)
{
    return lookup(&LN_Accounts::lookupUser, name);
}

LN_Result<std::unique_ptr<char[]>> LN_UserUtil::getGroupFromName(QString const & name)
{
    return lookup(&LN_Accounts::lookupGroup, name);
}
