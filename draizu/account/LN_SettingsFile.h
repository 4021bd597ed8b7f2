#pragma once

#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/draizu_export.h>

#include <QString>
#include <QStringList>

/// The credentials file that lets an installation log in with no person present: an INI file
/// whose keys stand without a section, "username" and "password" for a password login,
/// "client_id" and "client_secret" for an application login, and "accept_eula" for the licence
/// agreements the installation accepts. The file is written by its owner, in clear text; this
/// library only reads it, and never chooses where it lies.
///
/// A plain value, copied at will. Nothing is read until load; a key the file lacks reads as
/// an empty text. Use on one thread at a time.
class DRAIZU_EXPORT LN_SettingsFile
{
public:
    /// Remembers the path and reads nothing.
    explicit LN_SettingsFile(QString path);

    /// Reads every key again. A file that does not exist is no error and leaves every value
    /// empty; one that QSettings cannot read gives its status in QSettingsErrorCategory with
    /// that category's text, and leaves every value as it was.
    LN_ErrorStruct load();

    /// The path given at construction.
    QString path() const;
    /// "username"; empty before load or when absent.
    QString username() const;
    /// "password"; empty before load or when absent.
    QString password() const;
    /// "client_id"; empty before load or when absent.
    QString clientId() const;
    /// "client_secret"; empty before load or when absent.
    QString clientSecret() const;
    /// The names of the licence agreements in "accept_eula", a comma-separated list, in its
    /// order; empty before load or when absent.
    QStringList acceptedLicenses() const;

private:
    QString path_;
    QString username_;
    QString password_;
    QString clientId_;
    QString clientSecret_;
    QStringList acceptedLicenses_;
};
