#pragma once

#include <draizu/draizu_export.h>

#include <system_error>

// The library's error categories. Each is a singleton behind a free function, built on first
// use and immutable afterwards, so safe from any thread. Their texts are fixed lower-case
// fragments: message(0) is "no error" in each, and a value without a text gives the
// category's unknown text, never an exception. Misspelt texts and names are part of the
// interface and stay as they are.

/// Codes of LN_ServiceErrorCategory: failures of system service control.
enum class LN_ServiceError {
    InsufficientPermissions = 1, ///< "insufficient permissions"
    UnreadableResponse = 2,      ///< "unable to read the response from the service manager"
    ServiceDoesNotExist = 3,     ///< "the service does not exist"
    UnsupportedInitSystem = 4,   ///< "unsupported init system"
    Unspecified = 5,             ///< "an unspecified error occurred"
};

/// Codes of LN_FileErrorCategory: failures of finding a build's files.
enum class LN_FileError {
    NotLoggedIn = 1,  ///< "you must be logged in to view this content"
    ArchiveError = 2, ///< "error processing archive"
    FileNotFound = 3, ///< "file not found"
    Unknown = 4,      ///< no text of its own: "unknown error"
};

/// Codes of LN_AvailableInfoErrorCategory: failures of reading a build catalogue.
enum class LN_AvailableInfoError {
    InvalidFormat = 1,       ///< "file format is invalid"
    NoVersionsFound = 2,     ///< "no versions were found"
    VersionNotAvailable = 3, ///< "version not available"
};

/// Codes of LN_InstallerOptionsParseErrorCategory: failures of the installer's command line.
enum class LN_InstallerOptionsParseError {
    InvalidSyntax = 1,  ///< "invalid syntax"
    InvalidOptions = 2, ///< "invalid options"
    GenericError = 3,   ///< "generic error"
};

/// Codes of LN_InstallerOptionsDeserializeErrorCategory: failures of reading serialised options.
enum class LN_InstallerOptionsDeserializeError {
    IncorrectDataFormat = 1, ///< "incorrect data format"
    MissingKey = 2,          ///< "a required key was missing"
    IncorrectType = 3,       ///< "a required value had the incorrect type"
    TooManyKeys = 4,         ///< "too many keys"
};

/// "LN_ServiceError"; unknown values read "unknown error".
DRAIZU_EXPORT std::error_category const & LN_ServiceErrorCategory();
/// "LN_FileError"; unknown values read "unknown error".
DRAIZU_EXPORT std::error_category const & LN_FileErrorCategory();
/// "LN_AvailableInfoError"; unknown values read "unknown error".
DRAIZU_EXPORT std::error_category const & LN_AvailableInfoErrorCategory();
/// "LN_InstallerOptionsParseError"; unknown values read "unknown error".
DRAIZU_EXPORT std::error_category const & LN_InstallerOptionsParseErrorCategory();
/// "LN_InstallerOptionsSeriailzeError", spelt so; unknown values read "unknown error".
DRAIZU_EXPORT std::error_category const & LN_InstallerOptionsDeserializeErrorCategory();

/// "QFile", values of QFileDevice::FileError; unknown values read "unknown QFile error".
DRAIZU_EXPORT std::error_category const & QFileErrorCategory();
/// "QNetwork", values of QNetworkReply::NetworkError; unknown values read
/// "unknown QNetworkReply error".
DRAIZU_EXPORT std::error_category const & QNetworkFileErrorCategory();
/// "QJsonParse", values of QJsonParseError::ParseError; unknown values, IllegalNumber among
/// them, read "unknown QJsonParseReply error".
DRAIZU_EXPORT std::error_category const & QJsonParseErrorCategory();
/// "QSettings", values of QSettings::Status; unknown values read "unknown QSettings error".
DRAIZU_EXPORT std::error_category const & QSettingsErrorCategory();

/// The code in LN_ServiceErrorCategory.
DRAIZU_EXPORT std::error_code make_error_code(LN_ServiceError e);
/// The code in LN_FileErrorCategory.
DRAIZU_EXPORT std::error_code make_error_code(LN_FileError e);
/// The code in LN_AvailableInfoErrorCategory.
DRAIZU_EXPORT std::error_code make_error_code(LN_AvailableInfoError e);
/// The code in LN_InstallerOptionsParseErrorCategory.
DRAIZU_EXPORT std::error_code make_error_code(LN_InstallerOptionsParseError e);
/// The code in LN_InstallerOptionsDeserializeErrorCategory.
DRAIZU_EXPORT std::error_code make_error_code(LN_InstallerOptionsDeserializeError e);

// The enumerations convert to std::error_code implicitly. Hidden from the API reference, whose
// parser cannot place a specialisation of std outside its namespace.
/// \cond
template <> struct std::is_error_code_enum<LN_ServiceError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_FileError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_AvailableInfoError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_InstallerOptionsParseError> : std::true_type {};
template <> struct std::is_error_code_enum<LN_InstallerOptionsDeserializeError> : std::true_type {};
/// \endcond
