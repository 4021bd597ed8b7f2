#pragma once

#include <draizu/platform/LN_Sid.h>

#include <QString>

/// The operating system's accounts.
namespace LN_Accounts {

/// The name of the user the process runs as; empty when the system does not know it.
QString currentUserName();

/// Finds the account of that name. 0 on success, otherwise the system's error number, or
/// ENOENT when there is no such account.
int lookupUser(QString const & name, LN_Sid * sid);
int lookupGroup(QString const & name, LN_Sid * sid);

} // namespace LN_Accounts
