#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QString>

#include <memory>

/// The system's accounts, by name. The lookups return bytes that hold one LN_Sid, to be read
/// with LN_Sid::fromBytes and kept as long as the sid is used. Each call asks the system's
/// account database afresh (which may be a directory service, so it can take a while), keeps no
/// state and may be called from any thread. Failures come in the result.
namespace LN_UserUtil {

/// The name of the user the process runs as (its effective user); empty when the system does
/// not know it.
DRAIZU_EXPORT QString getCurrentUserName();

/// The user of that name as a user sid. Fails with the system's error number, ENOENT for no
/// such user, and "Error number <n>".
DRAIZU_EXPORT LN_Result<std::unique_ptr<char[]>> getUserFromName(QString const & name);
/// The group of that name as a group sid. Fails as getUserFromName does.
DRAIZU_EXPORT LN_Result<std::unique_ptr<char[]>> getGroupFromName(QString const & name);

} // namespace LN_UserUtil
