#include <draizu/account/LN_SettingsFile.h>

#include <draizu/core/LN_ErrorCategory.h>

#include <QSettings>

using namespace Qt::StringLiterals;

LN_SettingsFile::LN_SettingsFile(QString path)
    : path_(std::move(path))
{
}

LN_ErrorStruct LN_SettingsFile::load()
{
    QSettings const settings(path_, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        std::error_code const code(settings.status(), QSettingsErrorCategory());
        return {code, QString::fromStdString(code.message())};
    }
    username_ = settings.value(u"username"_s).toString();
    password_ = settings.value(u"password"_s).toString();
    clientId_ = settings.value(u"client_id"_s).toString();
    clientSecret_ = settings.value(u"client_secret"_s).toString();
    // QSettings splits an unquoted value at its commas, and gives a lone name as one text.
    acceptedLicenses_ = settings.value(u"accept_eula"_s).toStringList();
    return {};
}

QString LN_SettingsFile::path() const
{
    return path_;
}

QString LN_SettingsFile::username() const
{
    return username_;
}

QString LN_SettingsFile::password() const
{
    return password_;
}

QString LN_SettingsFile::clientId() const
{
    return clientId_;
}

QString LN_SettingsFile::clientSecret() const
{
    return clientSecret_;
}

QStringList LN_SettingsFile::acceptedLicenses() const
{
    return acceptedLicenses_;
}
