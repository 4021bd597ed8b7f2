#include <draizu/options/LN_InstallerOptions.h>

#include <draizu/catalogue/LN_InstallOption.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_FixedLocations.h>
#include <draizu/host/LN_Util.h>
#include <draizu/prefs/LN_Preferences.h>

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>

#include <algorithm>
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

// Folder of each engine plug-in under "Orvanis Engine", by product number 1 to 4.
QString engineFolder(LN_ProductID product)
{
    static constexpr std::array<char16_t const *, 4> words = {u"3ds Max", u"Maya", u"Unity", u"Unreal"};
    return QString::fromUtf16(words.at(product - Product_Engine3dsMax));
}

bool isEnginePlugin(LN_ProductID product)
{
    return std::ranges::find(enginePluginProducts, product) != enginePluginProducts.end();
}

QString yesNo(bool yes)
{
    return yes ? u"yes"_s : u"no"_s;
}

QCommandLineOption valueOption(QString const & name, QString const & valueName, QString const & help)
{
    return QCommandLineOption(name, help, valueName);
}

QCommandLineOption yesNoOption(QString const & name, QString const & help, QString const & defaultValue)
{
    return QCommandLineOption(name, help + u"  Default is "_s + defaultValue + u'.', u"yes|no"_s, defaultValue);
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

LN_InstallerOptions::DiskReader::~DiskReader() = default;

void LN_InstallerOptions::setOption(QCommandLineOption const & option, QCommandLineParser const & parser)
{
    setOption(option.names().constFirst(), parser);
}

void LN_InstallerOptions::setOption(QString const & name, QCommandLineParser const & parser)
{
    // Asked through the options found, so that an option this parser lacks is simply unset.
    if (parser.optionNames().contains(name))
        otherOptions.insert(name, parser.value(name));
}

void LN_InstallerOptions::setDefaultValue(QString const & key, QString const & value)
{
    if (!otherOptions.contains(key))
        otherOptions.insert(key, value);
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

QList<QCommandLineOption> LN_InstallerOptions::productOptions(LN_ProductID product)
{
    switch (product) {
    case Product_Orvanis:
        return {
            yesNoOption(u"start-menu"_s, u"Create a start menu shortcut for Orvanis"_s, u"yes"_s),
            yesNoOption(u"desktop-shortcut"_s, u"Creates a shortcut to Orvanis on the Desktop"_s, u"no"_s),
            valueOption(u"start-menu-folder"_s, u"folder"_s,
                        u"The Start Menu folder that will contain the shortcuts for the Orvanis applications."_s),
            yesNoOption(u"file-associations"_s,
                        u"Associates Orvanis applications with Orvanis specific file types (.orv, .orvx, .oda)."_s,
                        u"yes"_s),
            yesNoOption(u"extra-file-associations"_s,
                        u"Associates Orvanis applications with additional image and geometry file types."_s, u"no"_s),
        };
    case Product_OQueueClient:
        return {
            valueOption(u"username"_s, u"user"_s, u"The user account to run OQClient as."_s),
            valueOption(u"password"_s, u"password"_s, u"The password for the above user."_s),
            valueOption(u"service-name"_s, u"name"_s, u"The name for the OQueue Client service."_s),
            valueOption(u"server"_s, u"server"_s, u"The URL of the OQueue Server to connect to."_s),
            valueOption(u"port"_s, u"port"_s, u"The port number of the OQueue Server to connect to."_s),
            yesNoOption(u"mount-shared-folder"_s, u"Help text for mount-shared-folder."_s, u"yes"_s),
        };
    case Product_OQueueServer:
        return {
            valueOption(u"name"_s, u"name"_s, u"Help text for name"_s),
            valueOption(u"port"_s, u"port"_s, u"Help text for port"_s),
            valueOption(u"shared-dir"_s, u"metavar"_s, u"Help text for shared-dir"_s),
            valueOption(u"share-name"_s, u"share_name"_s,
                        u"The name for the other clients to connect to the shared folder"_s),
            valueOption(u"service-name"_s, u"name"_s, u"The name for the OQueue Server service."_s),
            valueOption(u"username"_s, u"username"_s, u"The user account to run the OQueue Server service under"_s),
            valueOption(u"password"_s, u"password"_s, u"The password for the account"_s),
            valueOption(u"shared-folder-mount"_s, u"dir"_s,
                        u"Where the OQueue shared folder should be mounted on OQueue Clients"_s),
        };
    default:
        return {};
    }
}

QList<QCommandLineOption> LN_InstallerOptions::featureOptions(LN_ProductID product)
{
    QList<QCommandLineOption> options;
    if (product != Product_Orvanis)
        return options;
    for (LN_InstallOption const & option : orvanisInstallOptions)
        options.append(yesNoOption(QString::fromUtf8(option.optionId), QString::fromUtf8(option.description), u"no"_s));
    return options;
}

void LN_InstallerOptions::setValuesFromAvailable(LN_AvailableInfo const & info)
{
    version = info.version;
    setBuildType(info.buildType);
    platform = info.platform.toString();
}

void LN_InstallerOptions::setDefaultsFromPreferences(LN_Preferences const & preferences, LN_AvailableInfo const & info)
{
    if (verb > Extract)
        return;
    QString const preferredDir = preferences.orvanisInstallDir();
    if (product != Product_Orvanis) {
        if (isEnginePlugin(product) && installDir_.isEmpty() && !preferredDir.isEmpty())
            setInstallDir(QDir(preferredDir).absoluteFilePath(
                u"Orvanis Engine/%1/%2"_s.arg(engineFolder(product), version.toString())));
        return;
    }
    // Unlike defaultInstallDir, no blank between the word and the version.
    if (installDir_.isEmpty() && !preferredDir.isEmpty())
        setInstallDir(QDir(preferredDir).absoluteFilePath(u"Orvanis"_s + version.toString()));
    for (LN_InstallOption const & option : orvanisInstallOptions) {
        QString const name = QString::fromUtf8(option.name);
        features.insert(name, info.hasFeature(name) && preferences.getInstallOrvanisFeature(option));
    }
    otherOptions.insert(u"desktop-shortcut"_s, yesNo(preferences.installDesktopShortcut()));
    otherOptions.insert(u"file-associations"_s, yesNo(preferences.installFileAssociations()));
    otherOptions.insert(u"extra-file-associations"_s, yesNo(preferences.installExtraFileAssociations()));
    otherOptions.insert(u"start-menu"_s, yesNo(preferences.installLauncherShortcut()));
}

void LN_InstallerOptions::setDefaultValues()
{
    if (verb != Install)
        return;
    if (installDir_.isEmpty()) {
        setInstallDir(product == Product_OQueueClient ? LN_FixedLocations::value(LN_FixedLocations::OQueueClientDir)
                                                      : defaultInstallDir(product, version));
        if (product == Product_EngineMaya && getOption(u"for-orvanis"_s).isEmpty())
            otherOptions.insert(u"for-orvanis"_s, version.toString());
    }
    switch (product) {
    case Product_Orvanis:
        setDefaultValue(u"start-menu"_s, u"yes"_s);
        setDefaultValue(u"desktop-shortcut"_s, u"no"_s);
        if (getYesNoOption(u"start-menu"_s))
            setDefaultValue(u"start-menu-folder"_s, u"Marlux Digital Studio"_s);
        break;
    case Product_OQueueServer:
        setDefaultValue(u"shared-dir"_s, QDir(installDir_).absoluteFilePath(u"shared"_s));
        setDefaultValue(u"shared-folder-mount"_s, LN_FixedLocations::value(LN_FixedLocations::SharedFolderMount));
        setDefaultValue(u"share-name"_s, u"oq"_s);
        setDefaultValue(u"service-name"_s, u"OQueueServer"_s);
        break;
    case Product_OQueueClient:
        setDefaultValue(u"username"_s, LN_FixedLocations::value(LN_FixedLocations::ServiceAccount));
        setDefaultValue(u"server"_s, u"localhost"_s);
        setDefaultValue(u"port"_s, u"5000"_s);
        setDefaultValue(u"mount-shared-folder"_s, u"no"_s);
        setDefaultValue(u"service-name"_s, u"OQueueClient"_s);
        break;
    default:
        break;
    }
}

QString LN_InstallerOptions::defaultInstallDir(LN_ProductID product, QVersionNumber const & version)
{
    QDir const applicationDir(QCoreApplication::applicationDirPath());
    switch (product) {
    case Product_Orvanis:
        return applicationDir.absoluteFilePath(u"../../../Orvanis "_s + version.toString());
    case Product_LicenseServer:
        return applicationDir.absoluteFilePath(u"../../../License Server"_s);
    case Product_OQueueServer:
        return LN_FixedLocations::value(LN_FixedLocations::OQueueServerDir);
    case Product_MarluxLabs:
        return applicationDir.absoluteFilePath(u"../marlux_packages"_s);
    case Product_Optix:
        return QDir(applicationDir.absoluteFilePath(u"../../../extras"_s))
            .absoluteFilePath(u"optix"_s + version.toString());
    case Product_Oserver:
        return LN_FixedLocations::value(LN_FixedLocations::OserverDir);
    default:
        if (isEnginePlugin(product))
            return applicationDir.absoluteFilePath(
                u"../../../Orvanis Engine/%1/%2"_s.arg(engineFolder(product), version.toString()));
        return {};
    }
}

QString LN_InstallerOptions::defaultLogFileName() const
{
    QString const name = QString::fromLatin1(productName(product)).replace(u' ', u'_');
    return u"%1-%2%3.log"_s.arg(verbString(), name, version.toString());
}
