#pragma once

#include <QString>

/// Folders that the system keeps for the user.
namespace LN_KnownFolders {

/// The folder for the user's application data that follows the user from machine to machine,
/// with forward slashes; empty when the system names none.
QString roamingAppData();

} // namespace LN_KnownFolders
