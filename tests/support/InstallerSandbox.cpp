#include "InstallerSandbox.h"

#include <QDir>
#include <QDirIterator>
#include <QEventLoop>
#include <QJsonDocument>
#include <QTimer>

InstallerSandbox::InstallerSandbox(QString installer, QString root)
    : installer_(std::move(installer))
    , root_(std::move(root))
{
}

QJsonObject InstallerSandbox::Run::result() const
{
    QStringList const lines = out.split(u'\n', Qt::SkipEmptyParts);
    return lines.isEmpty() ? QJsonObject() : QJsonDocument::fromJson(lines.last().toUtf8()).object();
}

QProcessEnvironment InstallerSandbox::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DRAIZU_REPOSITORY"), root_ + QStringLiteral("/repository"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), root_ + QStringLiteral("/data"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), root_ + QStringLiteral("/config"));
    return environment;
}

InstallerSandbox::Run InstallerSandbox::run(QStringList const & arguments, QProcessEnvironment const & environment,
                                            std::function<void()> const & setup) const
{
    QProcess process;
    process.setProcessEnvironment(environment.isEmpty() ? this->environment() : environment);
    if (setup)
        process.setChildProcessModifier(setup);
    // The event loop turns while the installer runs, so that servers of the test process answer it.
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    process.start(installer_, arguments);
    process.closeWriteChannel();
    loop.exec();
    if (process.state() != QProcess::NotRunning)
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

bool InstallerSandbox::keep(QString const & copy) const
{
    return QDir().mkpath(root_) && QProcess::execute(QStringLiteral("cp"), {QStringLiteral("-a"), root_, copy}) == 0;
}

bool InstallerSandbox::restore(QString const & copy) const
{
    return QDir(root_).removeRecursively()
           && QProcess::execute(QStringLiteral("cp"), {QStringLiteral("-a"), copy, root_}) == 0;
}

bool InstallerSandbox::makeSample(QString const & generator, QString const & directory, QStringList const & options)
{
    return QProcess::execute(QStringLiteral("python3"), QStringList{generator, directory} + options) == 0;
}

QStringList InstallerSandbox::filesBelow(QString const & directory)
{
    QStringList files;
    QDirIterator walk(directory, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (walk.hasNext())
        files << QDir(directory).relativeFilePath(walk.next());
    files.sort();
    return files;
}
