#include <draizu/options/LN_InstallerOptions.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/host/LN_Util.h>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>

#include <array>

using namespace Qt::StringLiterals;

namespace {

struct VerbWord
{
    LN_InstallerOptions::Verb verb;
    QLatin1StringView word;
};

// Reading tries the words in this order; "update" is an older word for a modification and is
// never written.
constexpr std::array<VerbWord, 7> verbWords = {{
    {LN_InstallerOptions::Install, QLatin1StringView("install")},
    {LN_InstallerOptions::Extract, QLatin1StringView("extract")},
    {LN_InstallerOptions::Modify, QLatin1StringView("modify")},
    {LN_InstallerOptions::Modify, QLatin1StringView("update")},
    {LN_InstallerOptions::Uninstall, QLatin1StringView("uninstall")},
    {LN_InstallerOptions::Move, QLatin1StringView("move")},
    {LN_InstallerOptions::Repair, QLatin1StringView("repair")},
}};

// The system's idea of the full path. Like the kernel, it treats ".." above the root as the
// root itself, which cleanPath leaves standing ("/../x").
QString fullPathName(QString const & path)
{
    QString full = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    while (full == u"/.."_s || full.startsWith(u"/../"_s))
        full.remove(0, 3);
    return full.isEmpty() ? u"/"_s : full;
}

LN_Result<LN_InstallerOptions> incorrectType(QString const & text)
{
    return LN_ErrorStruct{make_error_code(LN_InstallerOptionsDeserializeError::IncorrectType), text};
}

} // namespace

QString LN_InstallerOptions::getOption(QString const & key) const
{
    return otherOptions.value(key);
}

bool LN_InstallerOptions::isOptionSet(QString const & key) const
{
    return otherOptions.contains(key);
}

bool LN_InstallerOptions::getYesNoOption(QString const & key) const
{
    switch (LN_Util::getYesNoOption(getOption(key))) {
    case LN_Util::Yes:
        return true;
    case LN_Util::No:
        return false;
    case LN_Util::Empty:
    case LN_Util::Unrecognised:
        break;
    }
    throw LN_Exception(u"Expected \"yes\" or \"no\" for option --"_s + key);
}

bool LN_InstallerOptions::getYesNoOptionIfSet(QString const & key) const
{
    return isOptionSet(key) && getYesNoOption(key);
}

bool LN_InstallerOptions::isSelected(QString const & feature) const
{
    if (productFromString(feature) == product)
        return true;
    return features.value(feature, false);
}

QString LN_InstallerOptions::installDir() const
{
    return installDir_;
}

QString LN_InstallerOptions::existingInstallDir() const
{
    return existingInstallDir_;
}

void LN_InstallerOptions::setInstallDir(QString const & path)
{
    installDir_ = canonicalInstallPath(path);
}

void LN_InstallerOptions::setExistingInstallDir(QString const & path)
{
    existingInstallDir_ = canonicalInstallPath(path);
}

QString LN_InstallerOptions::buildType() const
{
    return buildType_;
}

bool LN_InstallerOptions::isBuildTypeSet() const
{
    return buildTypeSet_;
}

void LN_InstallerOptions::setBuildType(QString const & value)
{
    buildTypeSet_ = true;
    buildType_ = value;
}

void LN_InstallerOptions::unsetBuildType()
{
    buildTypeSet_ = false;
    buildType_.clear();
}

QString LN_InstallerOptions::verbString() const
{
    return verbString(verb);
}

QString LN_InstallerOptions::verbString(Verb value)
{
    for (VerbWord const & row : verbWords) {
        if (row.verb == value)
            return row.word;
    }
    return u"invalid"_s;
}

LN_InstallerOptions::Verb LN_InstallerOptions::verbFromString(QString const & word)
{
    for (VerbWord const & row : verbWords) {
        if (word.compare(row.word, Qt::CaseInsensitive) == 0)
            return row.verb;
    }
    return Invalid;
}

bool LN_InstallerOptions::isMove() const
{
    return verb == Modify && !installDir_.isEmpty() && installDir_ != existingInstallDir_;
}

bool LN_InstallerOptions::installOptionalSOFSFiles() const
{
    return !offlineInstaller.isEmpty();
}

bool LN_InstallerOptions::needsAdmin() const
{
    return true;
}

QString LN_InstallerOptions::canonicalInstallPath(QString const & path)
{
    if (path.isEmpty())
        return path;
    return QDir(fullPathName(path)).absolutePath();
}

QString LN_InstallerOptions::serialize() const
{
    QJsonObject featureObject;
    for (auto it = features.cbegin(); it != features.cend(); ++it)
        featureObject.insert(it.key(), it.value());

    QJsonObject optionObject;
    for (auto it = otherOptions.cbegin(); it != otherOptions.cend(); ++it)
        optionObject.insert(it.key(), it.value());

    QJsonArray licenseArray;
    for (LN_LicenseAgreement const & license : licenses)
        licenseArray.append(license.agreement);

    QJsonObject const object{
        {u"verb"_s, verbString()},
        {u"offline-installer"_s, offlineInstaller},
        {u"install-dir"_s, installDir_},
        {u"existing-install-dir"_s, existingInstallDir_},
        {u"version"_s, version.toString()},
        {u"platform"_s, platform},
        {u"product"_s, QString::fromLatin1(productName(product))},
        {u"features"_s, featureObject},
        {u"other-options"_s, optionObject},
        {u"licenses"_s, licenseArray},
        {u"build-type"_s, buildTypeSet_ ? QJsonValue(buildType_) : QJsonValue(QJsonValue::Null)},
    };
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

LN_Result<LN_InstallerOptions> LN_InstallerOptions::deserialize(QString const & text)
{
    QJsonParseError parseError{};
    QJsonDocument const document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return LN_ErrorStruct{make_error_code(LN_InstallerOptionsDeserializeError::IncorrectDataFormat),
                              u"data is not valid JSON"_s};
    if (!document.isObject())
        return incorrectType(u"data was not a JSON object"_s);
    QJsonObject const object = document.object();

    LN_InstallerOptions options;
    // A missing or unreadable verb is no fault of the text: Invalid leaves the refusal to
    // whoever runs the operation.
    options.verb = verbFromString(object.value(u"verb"_s).toString());

    QJsonValue const offlineInstallerValue = object.value(u"offline-installer"_s);
    if (!offlineInstallerValue.isString())
        return incorrectType(u"offline-installer was incorrect type"_s);
    options.offlineInstaller = offlineInstallerValue.toString();

    QJsonValue const installDirValue = object.value(u"install-dir"_s);
    if (installDirValue.isString())
        options.installDir_ = canonicalInstallPath(installDirValue.toString());
    else if (!installDirValue.isNull())
        return incorrectType(u"install-dir was incorrect type"_s);

    QJsonValue const existingInstallDirValue = object.value(u"existing-install-dir"_s);
    if (existingInstallDirValue.isString())
        options.existingInstallDir_ = canonicalInstallPath(existingInstallDirValue.toString());
    else if (!existingInstallDirValue.isNull())
        return incorrectType(u"existing-install-dir was incorrect type"_s);

    QJsonValue const versionValue = object.value(u"version"_s);
    if (!versionValue.isString())
        return incorrectType(u"version was incorrect type"_s);
    QString const versionText = versionValue.toString();
    qsizetype suffixIndex = 0;
    options.version = QVersionNumber::fromString(versionText, &suffixIndex);
    if (suffixIndex != versionText.size())
        return incorrectType(u"version was a string, but not a valid version number"_s);

    QJsonValue const platformValue = object.value(u"platform"_s);
    if (!platformValue.isString())
        return incorrectType(u"platform was incorrect type"_s);
    options.platform = platformValue.toString();

    QJsonValue const productValue = object.value(u"product"_s);
    if (!productValue.isString())
        return incorrectType(u"product was incorrect type"_s);
    options.product = productFromString(productValue.toString());

    QJsonValue const featuresValue = object.value(u"features"_s);
    if (!featuresValue.isObject())
        return incorrectType(u"features was incorrect type"_s);
    QJsonObject const featureObject = featuresValue.toObject();
    for (auto it = featureObject.constBegin(); it != featureObject.constEnd(); ++it)
        options.features.insert(it.key(), it.value().toBool(false));

    QJsonValue const otherOptionsValue = object.value(u"other-options"_s);
    if (!otherOptionsValue.isObject())
        return incorrectType(u"other-options was incorrect type"_s);
    QJsonObject const optionObject = otherOptionsValue.toObject();
    for (auto it = optionObject.constBegin(); it != optionObject.constEnd(); ++it)
        options.otherOptions.insert(it.key(), it.value().toString());

    QJsonValue const licensesValue = object.value(u"licenses"_s);
    if (!licensesValue.isArray())
        return incorrectType(u"licenses was incorrect type"_s);
    for (QJsonValue const & license : licensesValue.toArray())
        options.licenses.append(LN_LicenseAgreement{license.toObject()});

    QJsonValue const buildTypeValue = object.value(u"build-type"_s);
    if (buildTypeValue.isString())
        options.setBuildType(buildTypeValue.toString());
    else if (!buildTypeValue.isNull())
        return incorrectType(u"build-type was incorrect type"_s);

    return options;
}
