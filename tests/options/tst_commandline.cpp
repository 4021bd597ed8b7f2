#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_FixedLocations.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_Args.h>
#include <draizu/options/LN_DiskReader.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/prefs/LN_Preferences.h>
#include <draizu/records/LN_InstallMetadata.h>

#include "support/OfflineInstaller.h"
#include "support/TestHttpServer.h"
#include "support/ThrownBy.h"

#include <QCommandLineParser>
#include <QNetworkAccessManager>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <map>

using namespace Qt::StringLiterals;
using Options = LN_InstallerOptions;
using OfflineInstaller::Files;

namespace {

QString const listPath = u"/download/download-installer/versions/linux/"_s;
QString const gcc12 = u"linux_x86_64_gcc12"_s;

QByteArray build(char const * version, char const * compiler = "gcc12", char const * extra = "")
{
    return QByteArray(R"({"name": "Orvanis", "version": ")") + version + R"(", "minimum launcher version": "21", )"
        + R"("files": "o.files", "os name": "linux_x86_64", "compiler": ")" + compiler + '"' + extra + '}';
}

QByteArray catalogue(QList<QByteArray> const & builds)
{
    return R"({"format version": 1, "products": [)" + builds.join(", ") + "]}";
}

// One Orvanis build that brings the local oserver along; the second installer has two builds.
QByteArray const withOserver =
    build("21.0.512", "gcc12", R"(, "features": [{"name": "PDB Files", "files": "o.files"}, {"name": "oserver", "files": "o.files"}])");
Files const oneBuild = {{u"data/overview.json"_s, catalogue({withOserver})}, {u"data/o.files"_s, "bin/orvanis\n"}};
Files const twoBuilds = {{u"data/overview.json"_s, catalogue({withOserver, build("21.0.600")})}, oneBuild.last()};
Files const otherSystem = {{u"data/overview.json"_s, R"({"version": "20.5", "minimum launcher version": "21",
    "os name": "win64", "compiler": "vc143", "products": [{"name": "Orvanis", "files": "o.files"}]})"}, oneBuild.last()};
Files const unpacked = {{u"overview.json"_s, R"({"version": "21.0.7", "minimum launcher version": "21",
    "os name": "linux_x86_64", "compiler": "gcc12", "products": [{"name": "Orvanis"}]})"}};
// The site: 21.0.5 comes for two compilers.
QByteArray const siteList =
    '[' + catalogue({build("21.0.4"), build("21.0.5", "gcc12"), build("21.0.5", "gcc11")}) + ']';

LN_ComponentMetadata record(LN_ProductID product, QString const & version, QString const & directory)
{
    LN_ComponentMetadata r;
    r.product = product;
    r.version = QVersionNumber::fromString(version);
    r.installDir = directory;
    r.platformInfo = LN_PlatformInfo::fromString(gcc12);
    return r;
}

// The fields that tell operations apart, in one line; %T stands for the test's directory.
QString describe(Options const & o, QString const & root)
{
    QString text = u"%1 %2 %3%4"_s.arg(o.verbString(), QString::fromLatin1(productName(o.product)), o.version.toString(),
                                       o.isBuildTypeSet() ? u'-' + o.buildType() : QString());
    for (auto const & [prefix, value] : {std::pair(u" "_s, o.platform), {u" to "_s, o.installDir()}, {u" at "_s, o.existingInstallDir()}})
        text += value.isEmpty() ? QString() : prefix + value;
    QStringList extras;
    for (auto const & [key, value] : std::map<QString, QString>(o.otherOptions.keyValueBegin(), o.otherOptions.keyValueEnd()))
        extras << key + u'=' + value;
    for (auto const & [key, selected] : std::map<QString, bool>(o.features.keyValueBegin(), o.features.keyValueEnd()))
        extras << (selected ? u'+' : u'-') + key;
    text += (o.force ? u" forced"_s : QString()) + (extras.isEmpty() ? QString() : u" {"_s + extras.join(u' ') + u'}');
    return text.replace(root, u"%T"_s);
}

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid() && site_.listen());
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        LN_Waits::setForTesting(LN_Waits::NetworkStall, 500);
        site_.on(listPath, TestHttpServer::Response::ok(siteList, "application/json"));
        using Fixed = LN_FixedLocations;
        for (auto const & [location, value] : {std::pair(Fixed::OQueueClientDir, path(u"client"_s)),
                 {Fixed::OQueueServerDir, path(u"server"_s)}, {Fixed::OserverDir, path(u"oserver-default"_s)},
                 {Fixed::SharedFolderMount, path(u"mnt"_s)}, {Fixed::ServiceAccount, u"account"_s}})
            Fixed::setForTesting(location, value);
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        for (auto const & [name, files] : {std::pair(u"one.iso"_s, oneBuild), {u"one.zip"_s, oneBuild}, {u"two.zip"_s, twoBuilds},
                                          {u"other.zip"_s, otherSystem}})
            QVERIFY(OfflineInstaller::make(path(name), files));
        QVERIFY(OfflineInstaller::writeTree(path(u"unpacked"_s), unpacked));
        LN_ComponentMetadata orvanis = record(Product_Orvanis, u"21.0.4"_s, path(u"orv"_s));
        orvanis.features.insert(u"PDB Files"_s, u"/m/pdb.json"_s);
        orvanis.otherOptions.insert(u"start-menu"_s, u"no"_s);
        for (LN_ComponentMetadata const & r : {orvanis, record(Product_LicenseServer, u"5.0"_s, path(u"ls"_s)),
                                               record(Product_Oserver, u"21.0.100"_s, path(u"oserver"_s))})
            full_.insert(r);
    }
    void init() { site_.clearRequests(); }

    void fromArgs_data()
    {
        QTest::addColumn<QString>("line");       // %T the test's directory
        QTest::addColumn<bool>("installed");     // against the full repository, else an empty one
        QTest::addColumn<QStringList>("result"); // the operations, or the failure; %G the installers' platform
        QTest::addColumn<int>("siteRequests");
        auto row = [](char const * name, QString const & line, bool installed, QStringList result, int siteRequests = 0) {
            QTest::newRow(name) << line << installed << result.replaceInStrings(u"%G"_s, gcc12) << siteRequests;
        };
        auto failed = [](int code, QString const & text) {
            return QStringList{u"LN_InstallerOptionsParseError %1: %2"_s.arg(code).arg(text)};
        };
        QString const upgrade = u"install oserver 21.0.512- %G"_s;
        QString const noPlatform = u"Could not determine the platform string automatically. "_s;
        QString const count = u"Incorrect number of arguments"_s;
        QString const notThere = u"%T/none does not contain an installation."_s;

        row("iso: everything from the installer, oserver too", u"install Orvanis --offline-installer %T/one.iso"_s, false,
            {u"install Orvanis 21.0.512- %G {-PDB Files}"_s, upgrade});
        row("zip: the product option alone, count 1", u"install --product orvanis --pdb-files YES --offline-installer %T/one.zip"_s,
            false, {u"install Orvanis 21.0.512- %G {+PDB Files}"_s, upgrade});
        row("installed oserver is modified", u"install Orvanis --offline-installer %T/one.zip --installdir %T/new --start-menu no"_s,
            true, {u"install Orvanis 21.0.512- %G to %T/new {start-menu=no -PDB Files}"_s, u"modify oserver 21.0.512- %G to %T/oserver "
                   "at %T/oserver"_s});
        row("version argument with build type: no oserver of that type", u"install Orvanis 21.0.512-gold --offline-installer %T/one.iso"_s,
            false, {u"install Orvanis 21.0.512-gold %G {-PDB Files}"_s});
        row("two builds: the defaults cannot be taken", u"install Orvanis --offline-installer %T/two.zip"_s, false,
            failed(2, u"Failed to set defaults from arguments. TODO: Explain what went wrong"_s));
        row("installer of another system", u"install Orvanis --offline-installer %T/other.zip"_s, false,
            failed(2, u"Offline installer file contains no versions"_s));
        row("unpacked installer gives the platform", u"install Orvanis 21.0.7 --offline-installer %T/unpacked"_s, false,
            {u"install Orvanis 21.0.7- %G {-PDB Files}"_s});
        row("missing installer", u"install Orvanis 21.0.7 --offline-installer %T/absent"_s, false,
            {u"LN_AvailableInfoError 2: Unable to read available versions from \"%T/absent\": Path does not exist"_s});
        row("site: one platform, read once", u"install Orvanis 21.0.4"_s, false, {u"install Orvanis 21.0.4- %G {-PDB Files}"_s}, 1);
        row("site: two platforms", u"install Orvanis 21.0.5"_s, false,
            failed(2, noPlatform + u"Choices are linux_x86_64_gcc11, linux_x86_64_gcc12"_s), 1);
        row("site: no build of that type", u"install Orvanis 21.0.4-debug"_s, false,
            failed(2, noPlatform + u"No matching versions are available."_s), 1);
        row("site: unknown version overtakes what was collected", u"install Orvanis --version 18.5.1-gold"_s, false,
            failed(2, u"Version 18.5.1 is not available"_s), 1);
        row("no version and no installer file", u"install Orvanis"_s, false, failed(1, u"version number was not set"_s));
        row("collected after the arguments", u"install Orvanis --version 18.5.1-gold --platform p"_s, false,
            failed(3, u"\"18.5.1-gold\" is not a valid version number"_s));
        row("bad version argument", u"install Orvanis 18.x"_s, false, failed(1, u"\"18.x\" is not a valid version argument"_s));
        row("bad product", u"extract Orvanus 1.0"_s, false, failed(1, u"\"Orvanus\" is not a valid product"_s));
        row("bad product option", u"install Orvanis 1.0 --product Orvanus --platform p"_s, false,
            failed(3, u"\"Orvanus\" is not a valid product"_s));
        row("no product", u"install"_s, false, failed(1, u"No product was given to install."_s));
        row("five arguments", u"install Orvanis 1.0 %T/a b"_s, false, failed(1, count));
        row("unknown option first", u"move --bogus -z"_s, false, failed(1, u"Unknown options: bogus z"_s));
        row("product option overrides", u"install Orvanis 2.0 --product oqclient --platform p --server s --port 9 --password x "
            "--sofs-user u"_s, false, {u"install OQueue Client 2.0- p {password=x port=9 server=s sofs-user=u}"_s});
        row("plug-in with its Orvanis", u"extract maya 4.1 %T/maya --platform p --for-orvanis 21"_s, false,
            {u"extract Maya Plug-In 4.1- p to %T/maya {for-orvanis=21}"_s});
        row("feature option must be yes or no", u"install Orvanis 1.0 --platform p --pdb-files maybe"_s, false,
            {u"thrown: Expected \"yes\" or \"no\" for option --pdb-files"_s});
        row("once per machine: install becomes modify", u"install 'License Server' 6.0 --platform p"_s, true,
            {u"modify License Server 6.0- p at %T/ls"_s});
        row("installed directory: install becomes modify, a feature refused stays so", u"install Orvanis 21.0.4 %T/orv --platform p"_s,
            true, {u"modify Orvanis 21.0.4- p at %T/orv {start-menu=no -PDB Files}"_s}, 1);
        row("modify: record filled, moved, oserver follows", u"modify %T/orv/ --version 21.0.512 --installdir %T/moved --only-if-newer "
            "--offline-installer %T/one.iso"_s, true, {u"modify Orvanis 21.0.512- %G to %T/moved at %T/orv {only-if-newer= start-menu=no "
            "+PDB Files}"_s, u"modify oserver 21.0.512- %G to %T/oserver at %T/oserver"_s});
        row("modify: nothing there, and no version", u"modify %T/none"_s, true, failed(1, u"version number was not set"_s));
        row("modify: nothing there", u"modify %T/none --version 1 --platform p"_s, true, failed(3, notThere));
        row("modify: no directory", u"modify"_s, true, failed(1, count));
        row("modify: two directories", u"modify %T/orv %T/ls"_s, true,
            {u"modify Orvanis 21.0.4- %G at %T/orv {start-menu=no +PDB Files}"_s}, 1);
        row("modify: three directories", u"modify %T/orv a b"_s, true, failed(3, count));
        row("uninstall, forced", u"uninstall %T/ls --force"_s, true, {u"uninstall License Server 5.0- %G at %T/ls forced"_s});
        row("uninstall: no directory", u"uninstall"_s, true, failed(1, count));
        row("uninstall: two directories", u"uninstall %T/ls %T/orv"_s, true, failed(3, count));
        row("uninstall: nothing there", u"uninstall %T/none"_s, false, failed(3, notThere));
        row("repair", u"repair %T/orv"_s, true, {u"repair Orvanis 21.0.4- %G at %T/orv {start-menu=no +PDB Files}"_s});
        row("repair: no directory", u"repair"_s, true, {u"thrown: "_s + count});
        row("repair: nothing there", u"repair %T/none"_s, true, {u"thrown: "_s + notThere});
        row("move is refused", u"move %T/orv"_s, true, failed(3, u"Invalid verb \"move\" specified"_s));
        row("no verb", u""_s, true, failed(3, u"Invalid verb \"\" specified"_s));
    }
    void fromArgs()
    {
        QFETCH(QString, line);
        QFETCH(bool, installed);
        QFETCH(QStringList, result);
        QFETCH(int, siteRequests);
        LN_InstallMetadata const & installations = installed ? full_ : empty_;
        QCommandLineParser parser;
        parser.addOption(QCommandLineOption(u"only-if-newer"_s));
        Options::addOptions(parser, QStringList{u"draizu-installer"_s} + LN_Args::splitArgs(line.replace(u"%T"_s, root())), installations);
        QNetworkAccessManager manager;
        LN_FileOpener opener(&manager, Options());
        QStringList actual;
        QString const thrown = thrownBy([&] {
            LN_Result<QList<Options>> const parsed = Options::fromArgs(parser, installations, opener);
            for (Options const & options : parsed.value)
                actual << describe(options, root());
            if (parsed.isError())
                actual << u"%1 %2: %3"_s.arg(QString::fromLatin1(parsed.error.code.category().name())).arg(parsed.error.code.value())
                              .arg(QString(parsed.error.message).replace(root(), u"%T"_s));
        });
        QCOMPARE(thrown.isNull() ? actual : QStringList{u"thrown: "_s + QString(thrown).replace(root(), u"%T"_s)}, result);
        QCOMPARE(site_.requestCount(listPath), siteRequests);
    }

    void help_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("fragments"); // in the help, white space simplified; after "!", not in it
        QTest::newRow("no verb") << u""_s << QStringList{u"!--offline-installer"_s,
            u"command Available commands are install, extract, modify, uninstall, move, repair"_s};
        QTest::newRow("install Orvanis") << u"install Orvanis"_s << QStringList{u"!--force"_s, u"!--server"_s, u"!Available commands"_s,
            u"install [install_options]"_s, u"install Install a new product"_s, u"--version <version> The version to install"_s,
            u"--product <product> The product to install. One of \"Orvanis\", \"Engine 3ds Max|Maya|Unity|Unreal\", \"License Server\", "
            u"\"OQueue Client\", or \"OQueue Server\""_s,
            u"--platform <platform> The platform identifier for the build to install. e.g \"win64-vc142\", \"linux_x86_64_gcc9.3\", "
            u"etc. Default to current OS type if this option is not passed"_s,
            u"--build-option <build_option> Select an optional build, e.g. py2"_s,
            u"--for-orvanis <orvanis_version> (Maya Plug-In Only) Install Maya Plug-In for <orvanis_version>. Default to Maya Plug-In "
            u"version if this option is not passed"_s,
            u"--sofs-directory <directory> Set the path of the SOFS folder"_s,
            u"--sofs-user <username> Set the user account that owns the SOFS folder"_s,
            u"--sofs-group <group_name> Set the group owner for the SOFS folder"_s,
            u"--installdir <directory> Install product to <directory> instead of default location"_s,
            u"--offline-installer <path> The location of an offline installer file"_s,
            u"--accept-EULA <license> Indicate acceptance of the given End User License Agreement"_s,
            u"--start-menu <yes|no> Create a start menu shortcut for Orvanis Default is yes."_s,
            u"--desktop-shortcut <yes|no> Creates a shortcut to Orvanis on the Desktop Default is no."_s,
            u"--start-menu-folder <folder> The Start Menu folder that will contain the shortcuts for the Orvanis applications."_s,
            u"--file-associations <yes|no> Associates Orvanis applications with Orvanis specific file types (.orv, .orvx, .oda). "
            u"Default is yes."_s,
            u"--extra-file-associations <yes|no> Associates Orvanis applications with additional image and geometry file types. "
            u"Default is no."_s,
            u"--pdb-files <yes|no> Install PDB files containing debugging symbols. Default is no."_s};
        QTest::newRow("install OQueue client by option") << u"install --product 'OQueue Client'"_s << QStringList{u"!--start-menu"_s,
            u"!--pdb-files"_s, u"--username <user> The user account to run OQClient as."_s,
            u"--password <password> The password for the above user."_s, u"--service-name <name> The name for the OQueue Client service."_s,
            u"--server <server> The URL of the OQueue Server to connect to."_s,
            u"--port <port> The port number of the OQueue Server to connect to."_s,
            u"--mount-shared-folder <yes|no> Help text for mount-shared-folder. Default is yes."_s};
        QTest::newRow("extract OQueue server") << u"extract oqserver"_s << QStringList{u"!--mount-shared-folder"_s,
            u"--name <name> Help text for name"_s, u"--port <port> Help text for port"_s,
            u"--shared-dir <metavar> Help text for shared-dir"_s,
            u"--share-name <share_name> The name for the other clients to connect to the shared folder"_s,
            u"--service-name <name> The name for the OQueue Server service."_s,
            u"--username <username> The user account to run the OQueue Server service under"_s,
            u"--password <password> The password for the account"_s,
            u"--shared-folder-mount <dir> Where the OQueue shared folder should be mounted on OQueue Clients"_s};
        QTest::newRow("modify an installation") << u"modify %T/orv"_s << QStringList{u"!--product"_s,
            u"modify [modify_options] installdir"_s, u"installdir The directory containing the installation to modify"_s,
            u"modify Modify an existing installation"_s, u"--installdir <directory> The directory to move the installation to"_s,
            u"--version <version> The version to downgrade or upgrade to"_s,
            u"--for-orvanis <orvanis_version> (Maya Plug-In Only) Adjust Maya Plug-In to use <orvanis_version>"_s,
            u"--platform <platform> The platform identifier for the build to install. e.g \"win64-vc142\", \"linux_x86_64_gcc9.3\" "
            u"--sofs-directory"_s,
            u"--build-option <build-option> Select an optional build, e.g. py2"_s, u"--desktop-shortcut <yes|no> Creates a shortcut"_s};
        QTest::newRow("uninstall hides the installer options") << u"uninstall %T/orv"_s << QStringList{u"!--offline-installer"_s,
            u"!--accept-EULA"_s, u"!--start-menu"_s, u"uninstall [uninstall_options] installdir"_s, u"uninstall Uninstall a product"_s,
            u"installdir The directory containing the installation to uninstall"_s, u"--force Force uninstall and ignore any errors."_s};
        QTest::newRow("repair") << u"repair %T/orv"_s << QStringList{u"!--version"_s, u"!--start-menu"_s,
            u"repair [repair_options] installdir"_s, u"repair Repair an existing installation"_s,
            u"installdir The directory containing the installation to repair"_s};
        QTest::newRow("move has nothing of its own")
            << u"move x"_s << QStringList{u"!--installdir"_s, u"!Available commands"_s, u"--offline-installer <path>"_s};
    }
    void help()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, fragments);
        // As an executable builds it, with its own options beside the library's.
        QCommandLineParser parser;
        parser.addHelpOption();
        parser.addOption(QCommandLineOption(u"only-if-newer"_s, u"Do nothing unless the build is newer"_s));
        Options::addOptions(parser, QStringList{u"draizu-installer"_s} + LN_Args::splitArgs(line.replace(u"%T"_s, root())), full_);
        QString const text = parser.helpText().simplified();
        for (QString const & fragment : fragments) {
            bool const absent = fragment.startsWith(u'!');
            QVERIFY2(text.contains(fragment.sliced(absent ? 1 : 0)) != absent, qPrintable(fragment + u"\n in the help:\n"_s + text));
        }
    }

    void defaults_data()
    {
        QTest::addColumn<QString>("before"); // verb, product, then option=value pairs; version 21.0
        QTest::addColumn<bool>("preferred"); // from the preferences and a catalogue build, else the fixed defaults
        QTest::addColumn<QString>("after");  // %A three levels above the executable's directory
        auto row = [](char const * name, QString const & before, bool preferred, QString const & after) {
            QTest::newRow(name) << before << preferred << after;
        };
        row("Orvanis", u"install Orvanis"_s, false, u"install Orvanis 21.0 to %A/Orvanis 21.0 {desktop-shortcut=no "
            "start-menu=yes start-menu-folder=Marlux Digital Studio}"_s);
        row("Orvanis without start menu", u"install Orvanis start-menu=NO desktop-shortcut="_s, false,
            u"install Orvanis 21.0 to %A/Orvanis 21.0 {desktop-shortcut= start-menu=NO}"_s);
        row("Maya takes its version", u"install Maya"_s, false,
            u"install Maya Plug-In 21.0 to %A/Orvanis Engine/Maya/21.0 {for-orvanis=21.0}"_s);
        row("OQueue client", u"install oqclient port=7"_s, false, u"install OQueue Client 21.0 to %T/client "
            "{mount-shared-folder=no port=7 server=localhost service-name=OQueueClient username=account}"_s);
        row("OQueue server", u"install oqserver"_s, false, u"install OQueue Server 21.0 to %T/server {service-name="
            "OQueueServer share-name=oq shared-dir=%T/server/shared shared-folder-mount=%T/mnt}"_s);
        row("oserver", u"install oserver"_s, false, u"install oserver 21.0 to %T/oserver-default"_s);
        row("Optix under extras", u"install Optix"_s, false, u"install Optix 21.0 to %A/extras/optix21.0"_s);
        row("no directory for this product", u"install nothing"_s, false, u"install Invalid 21.0"_s);
        row("modify changes nothing", u"modify Orvanis"_s, false, u"modify Orvanis 21.0"_s);
        row("bad start menu", u"install Orvanis start-menu=maybe"_s, false,
            u"thrown: Expected \"yes\" or \"no\" for option --start-menu"_s);
        QString const build = u" 21.0.512-gold "_s + gcc12;
        row("preferred Orvanis: no blank", u"install Orvanis desktop-shortcut=no"_s, true,
            u"install Orvanis%1 to %T/prefs/Orvanis21.0.512 {desktop-shortcut=yes extra-file-associations=no "
            "file-associations=yes start-menu=yes +PDB Files}"_s.arg(build));
        row("preferred plug-in", u"extract Unreal"_s, true,
            u"extract Unreal Plug-In%1 to %T/prefs/Orvanis Engine/Unreal/21.0.512"_s.arg(build));
        row("modify is left alone", u"modify Orvanis"_s, true, u"modify Orvanis"_s + build);
        row("licence server is left alone", u"install mrlxnetd"_s, true, u"install License Server"_s + build);
    }
    void defaults()
    {
        QFETCH(QString, before);
        QFETCH(bool, preferred);
        QFETCH(QString, after);
        QStringList words = before.split(u' ');
        Options options;
        options.verb = Options::verbFromString(words.takeFirst());
        options.product = productFromString(words.takeFirst());
        options.version = QVersionNumber(21, 0);
        for (QString const & word : words)
            options.otherOptions.insert(word.section(u'=', 0, 0), word.section(u'=', 1));

        LN_Preferences preferences(path(u"Launcher.ini"_s));
        preferences.setOrvanisInstallDir(path(u"prefs"_s));
        preferences.setInstallOrvanisFeature(orvanisInstallOptions[0], true);
        preferences.setInstallDesktopShortcut(true);
        LN_AvailableInfo const info = LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(
            '[' + catalogue({build("21.0.512", "gcc12", R"(, "build type": "gold", "features": [{"name": "PDB Files"}])")})
            + ']')).constFirst();
        QString const thrown = thrownBy([&] {
            if (!preferred)
                return options.setDefaultValues();
            options.setValuesFromAvailable(info);
            options.setDefaultsFromPreferences(preferences, info);
        });
        QString const above = QDir::cleanPath(QCoreApplication::applicationDirPath() + u"/../../.."_s);
        QCOMPARE(thrown.isNull() ? describe(options, root()).replace(above, u"%A"_s) : u"thrown: "_s + thrown, after);
    }

    void logFileName()
    {
        Options options;
        std::tie(options.verb, options.product, options.version) = std::tuple(Options::Uninstall, Product_EngineMaya, QVersionNumber(4, 1));
        QCOMPARE(options.defaultLogFileName(), u"uninstall-Maya_Plug-In4.1.log"_s);
    }

    void diskReaderRemembersOneAnswer()
    {
        QString const copy = path(u"copy.zip"_s);
        QVERIFY(QFile::copy(path(u"one.zip"_s), copy));
        QNetworkAccessManager manager;
        LN_FileOpener opener(&manager, Options());
        LN_DiskReader reader(opener);
        QVERIFY(reader.isFile(copy) && reader.availableInfos(copy).value.size() == 3);
        QVERIFY(QFile::remove(copy));
        // Gone from the disk, but the same path is answered from memory.
        QVERIFY(reader.isFile(copy) && reader.availableInfos(copy).value.size() == 3);
        QVERIFY(!reader.isFile(path(u"unpacked"_s)) && !reader.isFile(copy));
        QVERIFY(reader.availableInfos(path(u"unpacked"_s)).value.size() == 1);
        QCOMPARE(reader.availableInfos(copy).error.code.value(), 2);
        QVERIFY(reader.availableInfos({}).value.size() == 3 && reader.availableInfos({}).value.size() == 3);
        QCOMPARE(site_.requestCount(listPath), 1);
    }

    void splitArgs_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("blank") << u" \t\n "_s << QStringList();
        QTest::newRow("spaced") << u"  a   b  "_s << QStringList{u"a"_s, u"b"_s};
        QTest::newRow("quotes join") << u"a\"b c\"d 'it''s' \"it's\""_s << QStringList{u"ab cd"_s, u"its"_s, u"it's"_s};
        QTest::newRow("escapes") << u"it\\'s \"a\\\"b\" 'c\\'d' C:\\temp \\\\x"_s
                                 << QStringList{u"it's"_s, u"a\"b"_s, u"c'd"_s, u"C:temp"_s, u"\\x"_s};
        QTest::newRow("empty quoted before blank") << u"\"\" x ''"_s << QStringList{QString(), u"x"_s};
        QTest::newRow("unterminated quote") << u"a 'b  c"_s << QStringList{u"a"_s, u"b  c"_s};
        QTest::newRow("trailing backslash") << u"a\\"_s << QStringList{u"a"_s};
        QTest::newRow("escaped blank") << u"a\\ b"_s << QStringList{u"a b"_s};
    }
    void splitArgs()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, arguments);
        QCOMPARE(LN_Args::splitArgs(line), arguments);
    }

    void joinArgs()
    {
        QCOMPARE(QStringList({LN_Args::joinArgs({u"a b"_s, u"c\"d"_s, u"e\\f"_s}), LN_Args::joinArgs({QString()}), LN_Args::joinArgs({})}),
                 QStringList({u"\"a b\" \"c\\\"d\" \"e\\\\f\""_s, u"\"\""_s, QString()}));
        // Any list whose last argument is not empty comes back, whatever its characters.
        QString const alphabet = u" \t\"'\\ab\u00e9"_s;
        QRandomGenerator random(20261124);
        for (int i = 0; i < 2000; ++i) {
            QStringList list(random.bounded(1, 5));
            for (QString & argument : list) {
                for (int n = random.bounded(0, 6); n > 0; --n)
                    argument += alphabet.at(random.bounded(alphabet.size()));
            }
            if (list.last().isEmpty())
                list.last() = u"z"_s;
            QCOMPARE(LN_Args::splitArgs(LN_Args::joinArgs(list)), list);
        }
    }

private:
    QString root() const { return work_.path(); }
    QString path(QString const & name) const { return work_.filePath(name); }

    QTemporaryDir work_;
    TestHttpServer site_;
    LN_InstallMetadata full_;
    LN_InstallMetadata const empty_;
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
