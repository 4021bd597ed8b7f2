#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QString>

#include <memory>

/// Accounts of the system. The bytes that the lookups return hold one LN_Sid; read it with
/// LN_Sid::fromBytes.
namespace LN_UserUtil {

/// The name of the user the process runs as; empty when the system does not know it.
DRAIZU_EXPORT QString getCurrentUserName();

/// The user or group of that name. Fails with "Error number <n>".
DRAIZU_EXPORT LN_Result<std::unique_ptr<char[]>> getUserFromName(QString const & name);
DRAIZU_EXPORT LN_Result<std::unique_ptr<char[]>> getGroupFromName(QString const & name);

} // namespace LN_UserUtil
