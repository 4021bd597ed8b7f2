// The installer's command line and the defaults taken from installations. They are members of
// LN_InstallerOptions but read the repository, which is the higher layer, so they are defined
// here beside it; the options' own folder never includes a header of records.

#include <draizu/options/LN_InstallerOptions.h>

#include <draizu/catalogue/LN_InstallOption.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_DiskReader.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QDir>
#include <QRegularExpression>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

using Parsed = LN_Result<QList<LN_InstallerOptions>>;

Parsed parseError(LN_InstallerOptionsParseError code, QString const & text)
{
    return LN_ErrorStruct{make_error_code(code), text};
}

QString const incorrectCount = u"Incorrect number of arguments"_s;

QString notAnInstallation(QString const & directory)
{
    return directory + u" does not contain an installation."_s;
}

bool hasInstallation(LN_InstallMetadata const & installations, QString const & directory)
{
    return !installations.get(directory).installDir.isEmpty();
}

QList<QCommandLineOption> installArguments()
{
    auto option = [](QString const & name, QString const & valueName, QString const & help) {
        return QCommandLineOption(name, help, valueName);
    };
    return {
        option(u"product"_s, u"product"_s,
               u"The product to install. One of \"Orvanis\", \"Engine 3ds Max|Maya|Unity|Unreal\", "
               u"\"License Server\", \"OQueue Client\", or \"OQueue Server\""_s),
        option(u"version"_s, u"version"_s, u"The version to install"_s),
        option(u"platform"_s, u"platform"_s,
               u"The platform identifier for the build to install. e.g \"win64-vc142\", \"linux_x86_64_gcc9.3\", "
               u"etc. Default to current OS type if this option is not passed"_s),
        option(u"build-option"_s, u"build_option"_s, u"Select an optional build, e.g. py2"_s),
        option(u"for-orvanis"_s, u"orvanis_version"_s,
               u"(Maya Plug-In Only) Install Maya Plug-In for <orvanis_version>. Default to Maya Plug-In version "
               u"if this option is not passed"_s),
        option(u"sofs-directory"_s, u"directory"_s, u"Set the path of the SOFS folder"_s),
        option(u"sofs-user"_s, u"username"_s, u"Set the user account that owns the SOFS folder"_s),
        option(u"sofs-group"_s, u"group_name"_s, u"Set the group owner for the SOFS folder"_s),
        option(u"installdir"_s, u"directory"_s, u"Install product to <directory> instead of default location"_s),
    };
}

QList<QCommandLineOption> modifyArguments()
{
    auto option = [](QString const & name, QString const & valueName, QString const & help) {
        return QCommandLineOption(name, help, valueName);
    };
    return {
        option(u"installdir"_s, u"directory"_s, u"The directory to move the installation to"_s),
        // fromArgs asks only whether it is set, so this default has no effect.
        QCommandLineOption(u"version"_s, u"The version to downgrade or upgrade to"_s, u"version"_s, u"version"_s),
        option(u"for-orvanis"_s, u"orvanis_version"_s,
               u"(Maya Plug-In Only) Adjust Maya Plug-In to use <orvanis_version>"_s),
        option(u"platform"_s, u"platform"_s,
               u"The platform identifier for the build to install. e.g \"win64-vc142\", \"linux_x86_64_gcc9.3\""_s),
        option(u"sofs-directory"_s, u"directory"_s, u"Set the path of the SOFS folder"_s),
        option(u"sofs-user"_s, u"username"_s, u"Set the user account that owns the SOFS folder"_s),
        option(u"sofs-group"_s, u"group_name"_s, u"Set the group owner for the SOFS folder"_s),
        option(u"build-option"_s, u"build-option"_s, u"Select an optional build, e.g. py2"_s),
    };
}

// The verb's positional arguments and options; extract takes those of install.
void addVerbArguments(QCommandLineParser & parser, LN_InstallerOptions::Verb verb)
{
    using Options = LN_InstallerOptions;
    switch (verb) {
    case Options::Install:
    case Options::Extract:
        parser.addPositionalArgument(u"install"_s, u"Install a new product"_s, u"install [install_options]"_s);
        parser.addOptions(installArguments());
        break;
    case Options::Modify:
        parser.addPositionalArgument(u"modify"_s, u"Modify an existing installation"_s, u"modify [modify_options]"_s);
        parser.addPositionalArgument(u"installdir"_s, u"The directory containing the installation to modify"_s);
        parser.addOptions(modifyArguments());
        break;
    case Options::Uninstall:
        parser.addPositionalArgument(u"uninstall"_s, u"Uninstall a product"_s, u"uninstall [uninstall_options]"_s);
        parser.addPositionalArgument(u"installdir"_s, u"The directory containing the installation to uninstall"_s);
        parser.addOption(QCommandLineOption(u"force"_s, u"Force uninstall and ignore any errors."_s));
        break;
    case Options::Repair:
        parser.addPositionalArgument(u"repair"_s, u"Repair an existing installation"_s, u"repair [repair_options]"_s);
        parser.addPositionalArgument(u"installdir"_s, u"The directory containing the installation to repair"_s);
        break;
    case Options::Move:
    case Options::Invalid:
        break;
    }

    QCommandLineOption offlineInstaller(u"offline-installer"_s, u"The location of an offline installer file"_s,
                                        u"path"_s);
    QCommandLineOption acceptEula(u"accept-EULA"_s, u"Indicate acceptance of the given End User License Agreement"_s,
                                  u"license"_s);
    if (verb == Options::Uninstall) {
        offlineInstaller.setFlags(QCommandLineOption::HiddenFromHelp);
        acceptEula.setFlags(QCommandLineOption::HiddenFromHelp);
    }
    parser.addOption(offlineInstaller);
    parser.addOption(acceptEula);
}

} // namespace

// One pass of fromArgs over a parsed line: failures that end it at once are returned or
// thrown, the others are collected and looked at twice.
struct LN_InstallerOptions::CommandLine
{
    CommandLine(QCommandLineParser const & commandLine, LN_InstallMetadata const & repository)
        : parser(commandLine)
        , installations(repository)
        , arguments(commandLine.positionalArguments())
    {
    }

    QCommandLineParser const & parser;
    LN_InstallMetadata const & installations;
    QStringList const arguments;
    LN_InstallerOptions options;
    QStringList collected;

    bool isSet(QString const & name) const { return parser.optionNames().contains(name); }
    void store(QString const & name) { options.setOption(name, parser); }
    Parsed collectedFailure(LN_InstallerOptionsParseError code) const
    {
        return parseError(code, collected.join(u'\n'));
    }

    std::optional<Parsed> readInstall();
    std::optional<Parsed> readModify();
    std::optional<Parsed> readUninstall();
    void readRepair();
    void readVersionArgument(QString const & argument);
    void readCommonOptions();
    std::optional<Parsed> lookUpMissing(DiskReader & reader);
    std::optional<Parsed> lookUpInOfflineInstaller(DiskReader & reader);
    std::optional<Parsed> lookUpPlatform(DiskReader & reader);
    void applyProductOptions();

    static void applyScope(LN_InstallerOptions & options, LN_InstallMetadata const & installations);
};

std::optional<Parsed> LN_InstallerOptions::CommandLine::readInstall()
{
    switch (arguments.size()) {
    case 1:
        if (!isSet(u"product"_s))
            collected << u"No product was given to install."_s;
        break;
    case 4:
        options.setInstallDir(arguments.at(3));
        [[fallthrough]];
    case 3:
        readVersionArgument(arguments.at(2));
        [[fallthrough]];
    case 2:
        options.product = productFromString(arguments.at(1));
        if (options.product == LN_ProductID::Invalid)
            collected << u"\"%1\" is not a valid product"_s.arg(arguments.at(1));
        break;
    default:
        collected << incorrectCount;
    }
    if (!collected.isEmpty())
        return collectedFailure(LN_InstallerOptionsParseError::InvalidSyntax);

    if (isSet(u"product"_s)) {
        QString const name = parser.value(u"product"_s);
        options.product = productFromString(name);
        if (options.product == LN_ProductID::Invalid)
            collected << u"\"%1\" is not a valid product"_s.arg(name);
    }
    if (options.product == Product_EngineMaya)
        store(u"for-orvanis"_s);
    if (options.product == Product_OQueueClient) {
        for (QString const & name : {u"server"_s, u"port"_s, u"username"_s})
            store(name);
    }
    for (QString const & name : {u"sofs-directory"_s, u"sofs-user"_s, u"sofs-group"_s})
        store(name);
    return std::nullopt;
}

// A version argument always fixes the build type, to the empty one when it has no suffix.
void LN_InstallerOptions::CommandLine::readVersionArgument(QString const & argument)
{
    static QRegularExpression const pattern(uR"(^(\d+(?:\.\d+)*)(?:-(.*))?$)"_s);
    QRegularExpressionMatch const match = pattern.match(argument);
    if (!match.hasMatch()) {
        collected << u"\"%1\" is not a valid version argument"_s.arg(argument);
        return;
    }
    options.version = QVersionNumber::fromString(match.captured(1));
    options.setBuildType(match.captured(2));
    if (options.version.isNull())
        collected << u"\"%1\" is not a valid version number"_s.arg(match.captured(1));
}

std::optional<Parsed> LN_InstallerOptions::CommandLine::readModify()
{
    if (arguments.size() < 2)
        return parseError(LN_InstallerOptionsParseError::InvalidSyntax, incorrectCount);
    if (arguments.size() > 3)
        collected << incorrectCount;
    options.setExistingInstallDir(arguments.at(1));
    LN_ComponentMetadata const record = installations.get(options.existingInstallDir_);
    if (!record.installDir.isEmpty()) {
        options = record.installOptions();
        options.verb = Modify;
    } else {
        collected << notAnInstallation(options.existingInstallDir_);
    }
    for (QString const & name : {u"for-orvanis"_s, u"sofs-directory"_s, u"sofs-user"_s, u"sofs-group"_s})
        store(name);
    return std::nullopt;
}

std::optional<Parsed> LN_InstallerOptions::CommandLine::readUninstall()
{
    if (arguments.size() < 2)
        return parseError(LN_InstallerOptionsParseError::InvalidSyntax, incorrectCount);
    if (arguments.size() > 2)
        collected << incorrectCount;
    options.setExistingInstallDir(arguments.at(1));
    options.force = isSet(u"force"_s);
    LN_ComponentMetadata const record = installations.get(options.existingInstallDir_);
    if (!record.installDir.isEmpty())
        options.product = record.product;
    else
        collected << notAnInstallation(options.existingInstallDir_);
    return std::nullopt;
}

void LN_InstallerOptions::CommandLine::readRepair()
{
    if (arguments.size() != 2)
        throw LN_Exception(incorrectCount);
    options.setExistingInstallDir(arguments.at(1));
}

void LN_InstallerOptions::CommandLine::readCommonOptions()
{
    if ((options.verb == Install || options.verb == Modify) && isSet(u"only-if-newer"_s))
        options.otherOptions.insert(u"only-if-newer"_s, QString());

    if (options.verb <= Modify) {
        if (isSet(u"installdir"_s))
            options.setInstallDir(parser.value(u"installdir"_s));
        if (isSet(u"version"_s)) {
            // Unlike the version argument, the option takes no suffix.
            QString const text = parser.value(u"version"_s);
            qsizetype suffixIndex = 0;
            options.version = QVersionNumber::fromString(text, &suffixIndex);
            if (suffixIndex != text.size() || options.version.isNull())
                collected << u"\"%1\" is not a valid version number"_s.arg(text);
        }
        if (isSet(u"build-option"_s))
            options.setBuildType(parser.value(u"build-option"_s));
        if (isSet(u"platform"_s))
            options.platform = parser.value(u"platform"_s);
    }
    if (isSet(u"offline-installer"_s))
        options.offlineInstaller = parser.value(u"offline-installer"_s);
}

std::optional<Parsed> LN_InstallerOptions::CommandLine::lookUpMissing(DiskReader & reader)
{
    if (options.verb > Modify || (!options.version.isNull() && !options.platform.isEmpty()))
        return std::nullopt;
    if (reader.isFile(options.offlineInstaller))
        return lookUpInOfflineInstaller(reader);
    return lookUpPlatform(reader);
}

// An offline installer holds one build of the product: its first entry fills what is missing.
std::optional<Parsed> LN_InstallerOptions::CommandLine::lookUpInOfflineInstaller(DiskReader & reader)
{
    LN_Result<QList<LN_AvailableInfo>> const available = reader.availableInfos(options.offlineInstaller);
    if (available.isError())
        return Parsed(available.error);
    if (available.value.isEmpty())
        return parseError(LN_InstallerOptionsParseError::InvalidOptions, u"Offline installer file contains no versions"_s);
    LN_AvailableInfo const & first = available.value.constFirst();
    for (LN_AvailableInfo const & info : available.value) {
        if (productFromString(info.feature.name) == options.product
            && (info.version != first.version || info.buildType != first.buildType || info.platform != first.platform))
            return parseError(LN_InstallerOptionsParseError::InvalidOptions,
                              u"Failed to set defaults from arguments. TODO: Explain what went wrong"_s);
    }
    if (options.version.isNull())
        options.version = first.version;
    if (!options.buildTypeSet_)
        options.setBuildType(first.buildType);
    if (options.platform.isEmpty())
        options.platform = first.platform.toString();
    return std::nullopt;
}

// Without an offline installer file the version must be given; the platform follows from the
// builds of that version and build type when there is exactly one.
std::optional<Parsed> LN_InstallerOptions::CommandLine::lookUpPlatform(DiskReader & reader)
{
    if (options.version.isNull())
        return parseError(LN_InstallerOptionsParseError::InvalidSyntax, u"version number was not set"_s);
    LN_Result<QList<LN_AvailableInfo>> const available = reader.availableInfos(options.offlineInstaller);
    if (available.isError())
        return Parsed(available.error);

    bool versionFound = false;
    QStringList platforms;
    for (LN_AvailableInfo const & info : available.value) {
        if (info.version != options.version)
            continue;
        versionFound = true;
        if (info.buildType == options.buildType_)
            platforms << info.platform.toString();
    }
    if (!versionFound)
        return parseError(LN_InstallerOptionsParseError::InvalidOptions,
                          u"Version %1 is not available"_s.arg(options.version.toString()));
    platforms.sort();
    platforms.removeDuplicates();
    if (platforms.size() == 1) {
        options.platform = platforms.constFirst();
        return std::nullopt;
    }
    QString const reason = platforms.isEmpty() ? u"No matching versions are available."_s
                                               : u"Choices are "_s + platforms.join(u", "_s);
    return parseError(LN_InstallerOptionsParseError::InvalidOptions,
                      u"Could not determine the platform string automatically. "_s + reason);
}

void LN_InstallerOptions::CommandLine::applyProductOptions()
{
    LN_ProductID const product =
        options.verb == Modify ? installations.get(options.existingInstallDir_).product : options.product;
    for (QCommandLineOption const & option : productOptions(product))
        options.setOption(option, parser);
    if (product != Product_Orvanis)
        return;
    for (LN_InstallOption const & row : orvanisInstallOptions) {
        QString const name = QString::fromUtf8(row.name);
        if (options.verb == Install || options.verb == Extract)
            options.features.insert(name, false);
        QString const optionId = QString::fromUtf8(row.optionId);
        if (!isSet(optionId))
            continue;
        switch (LN_Util::getYesNoOption(parser.value(optionId))) {
        case LN_Util::Yes:
            options.features.insert(name, true);
            break;
        case LN_Util::No:
            options.features.insert(name, false);
            break;
        case LN_Util::Empty:
        case LN_Util::Unrecognised:
            throw LN_Exception(u"Expected \"yes\" or \"no\" for option --"_s + optionId);
        }
    }
}

// A product installed once per machine is modified where it is; any other is modified when
// the target directory already holds one.
void LN_InstallerOptions::CommandLine::applyScope(LN_InstallerOptions & options,
                                                  LN_InstallMetadata const & installations)
{
    if (productScope(options.product) == 0) {
        QString const existing = installations.getProduct(options.product).installDir;
        if (existing.isEmpty())
            return;
        options.verb = Modify;
        options.setExistingInstallDir(existing);
        if (options.installDir_ == options.existingInstallDir_)
            options.installDir_.clear();
    } else if (hasInstallation(installations, options.installDir_)) {
        options.verb = Modify;
        options.existingInstallDir_ = options.installDir_;
        options.installDir_.clear();
    }
}

void LN_InstallerOptions::addOptions(QCommandLineParser & parser, QList<QString> const & arguments,
                                     LN_InstallMetadata const & installations)
{
    QStringList verbs;
    for (int verb = Install; verb <= Repair; ++verb)
        verbs << verbString(Verb(verb));
    parser.clearPositionalArguments();
    parser.addPositionalArgument(u"command"_s, u"Available commands are "_s + verbs.join(u", "_s));
    parser.parse(arguments);
    if (parser.positionalArguments().isEmpty())
        return;

    Verb const verb = verbFromString(parser.positionalArguments().constFirst());
    parser.clearPositionalArguments();
    addVerbArguments(parser, verb);
    parser.parse(arguments);

    QStringList const positional = parser.positionalArguments();
    LN_ProductID product = LN_ProductID::Invalid;
    if (verb == Install || verb == Extract) {
        if (parser.optionNames().contains(u"product"_s))
            product = productFromString(parser.value(u"product"_s));
        else if (positional.size() >= 2)
            product = productFromString(positional.at(1));
    } else if (verb == Modify && positional.size() >= 2) {
        product = installations.get(QDir(positional.at(1)).absolutePath()).product;
    } else {
        return;
    }
    parser.addOptions(productOptions(product) + featureOptions(product));
    parser.parse(arguments);
}

LN_Result<QList<LN_InstallerOptions>> LN_InstallerOptions::fromArgs(QCommandLineParser const & parser,
                                                                    LN_InstallMetadata const & installations,
                                                                    DiskReader & reader)
{
    if (QStringList const unknown = parser.unknownOptionNames(); !unknown.isEmpty())
        return parseError(LN_InstallerOptionsParseError::InvalidSyntax, u"Unknown options: "_s + unknown.join(u' '));

    CommandLine line(parser, installations);
    QString const verbWord = line.arguments.value(0);
    line.options.verb = verbFromString(verbWord);
    std::optional<Parsed> failure;
    switch (line.options.verb) {
    case Install:
    case Extract:
        failure = line.readInstall();
        break;
    case Modify:
        failure = line.readModify();
        break;
    case Uninstall:
        failure = line.readUninstall();
        break;
    case Repair:
        line.readRepair();
        break;
    case Move:
    case Invalid:
        line.collected << u"Invalid verb \""_s + verbWord + u"\" specified"_s;
        break;
    }
    if (failure)
        return *failure;

    line.readCommonOptions();
    if ((failure = line.lookUpMissing(reader)))
        return *failure;
    if (line.options.verb <= Modify)
        line.applyProductOptions();
    if (line.options.verb == Install)
        CommandLine::applyScope(line.options, installations);
    if (!line.collected.isEmpty())
        return line.collectedFailure(LN_InstallerOptionsParseError::GenericError);

    LN_InstallerOptions & options = line.options;
    options.setValuesFromInstallations(installations);
    QList<LN_InstallerOptions> operations{options};
    if ((options.verb == Install || options.verb == Modify) && options.product == Product_Orvanis) {
        // A failure to read the builds only means no upgrade is offered.
        LN_Result<QList<LN_AvailableInfo>> const available = reader.availableInfos(options.offlineInstaller);
        LN_InstallerOptions upgrade;
        if (!available.isError() && getOserverUpgrade(available.value, installations, options, &upgrade))
            operations.append(upgrade);
    }
    return operations;
}

LN_Result<QList<LN_InstallerOptions>> LN_InstallerOptions::fromArgs(QCommandLineParser const & parser,
                                                                    LN_InstallMetadata const & installations,
                                                                    LN_FileOpener & opener)
{
    LN_DiskReader reader(opener);
    return fromArgs(parser, installations, reader);
}

void LN_InstallerOptions::setValuesFromInstallations(LN_InstallMetadata const & installations)
{
    if (verb == Install)
        CommandLine::applyScope(*this, installations);
    if (verb <= Extract)
        return;

    LN_ComponentMetadata const record = installations.get(existingInstallDir_);
    if (record.installDir.isEmpty())
        throw LN_Exception(notAnInstallation(existingInstallDir_));
    // Explicit choices of the operation win; the record fills the rest.
    if (version.isNull())
        version = record.version;
    product = record.product;
    if (!buildTypeSet_)
        setBuildType(record.buildType);
    if (platform.isEmpty())
        platform = record.platformInfo.toString();
    for (auto it = record.otherOptions.constBegin(); it != record.otherOptions.constEnd(); ++it) {
        if (!otherOptions.contains(it.key()))
            otherOptions.insert(it.key(), it.value());
    }
    for (auto it = record.features.constBegin(); it != record.features.constEnd(); ++it) {
        if (!features.contains(it.key()))
            features.insert(it.key(), true);
    }
}

bool LN_InstallerOptions::getOserverUpgrade(QList<LN_AvailableInfo> const & available,
                                            LN_InstallMetadata const & installations,
                                            LN_InstallerOptions const & options, LN_InstallerOptions * upgrade)
{
    auto const match = std::ranges::find_if(available, [&](LN_AvailableInfo const & info) {
        return productFromString(info.feature.name) == Product_Oserver && info.version == options.version
            && info.buildType == options.buildType_ && info.platform.toString() == options.platform;
    });
    if (match == available.end())
        return false;

    LN_ComponentMetadata const installed = installations.getProduct(Product_Oserver);
    if (QVersionNumber::compare(options.version, installed.version) <= 0)
        return false;
    if (upgrade) {
        *upgrade = options;
        upgrade->features.clear();
        upgrade->otherOptions.clear();
        upgrade->product = Product_Oserver;
        upgrade->verb = installed.installDir.isEmpty() ? Install : Modify;
        upgrade->setInstallDir(installed.installDir);
        upgrade->setExistingInstallDir(installed.installDir);
    }
    return true;
}
