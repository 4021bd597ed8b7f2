#pragma once

#include <draizu/draizu_export.h>

#include <system_error>

/// Codes of the library's own error categories.
enum class LN_ServiceError {
    InsufficientPermissions = 1,
    UnreadableResponse = 2,
    ServiceDoesNotExist = 3,
    UnsupportedInitSystem = 4,
    Unspecified = 5,
};

enum class LN_FileError {
    NotLoggedIn = 1,
    ArchiveError = 2,
    FileNotFound = 3,
    Unknown = 4,
};

enum class LN_AvailableInfoError {
    InvalidFormat = 1,
    NoVersionsFound = 2,
    VersionNotAvailable = 3,
};

enum class LN_InstallerOptionsParseError {
    InvalidSyntax = 1,
    InvalidOptions = 2,
    GenericError = 3,
};

enum class LN_InstallerOptionsDeserializeError {
    IncorrectDataFormat = 1,
    MissingKey = 2,
    IncorrectType = 3,
    TooManyKeys = 4,
};

/// The library's error categories: singletons built on first use, safe from any thread.
/// `message(0)` is "no error" in each; an unknown value gives the category's unknown text.
DRAIZU_EXPORT std::error_category const & LN_ServiceErrorCategory();
DRAIZU_EXPORT std::error_category const & LN_FileErrorCategory();
DRAIZU_EXPORT std::error_category const & LN_AvailableInfoErrorCategory();
DRAIZU_EXPORT std::error_category const & LN_InstallerOptionsParseErrorCategory();
DRAIZU_EXPORT std::error_category const & LN_InstallerOptionsDeserializeErrorCategory();

/// Categories that give Qt's error enumerations texts of their own; values are Qt's numbers
/// (QFileDevice::FileError, QNetworkReply::NetworkError, QJsonParseError::ParseError,
/// QSettings::Status).
DRAIZU_EXPORT std::error_category const & QFileErrorCategory();
DRAIZU_EXPORT std::error_category const & QNetworkFileErrorCategory();
DRAIZU_EXPORT std::error_category const & QJsonParseErrorCategory();
DRAIZU_EXPORT std::error_category const & QSettingsErrorCategory();

DRAIZU_EXPORT std::error_code make_error_code(LN_ServiceError e);
DRAIZU_EXPORT std::error_code make_error_code(LN_FileError e);
DRAIZU_EXPORT std::error_code make_error_code(LN_AvailableInfoError e);
DRAIZU_EXPORT std::error_code make_error_code(LN_InstallerOptionsParseError e);
DRAIZU_EXPORT std::error_code make_error_code(LN_InstallerOptionsDeserializeError e);

template <> struct std::is_error_code_enum<LN_ServiceError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_FileError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_AvailableInfoError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_InstallerOptionsParseError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_InstallerOptionsDeserializeError> : std::true_type {};
