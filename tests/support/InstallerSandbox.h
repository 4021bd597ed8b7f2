#pragma once

// draizu-installer run as a user runs it, with its records, logs and preferences kept below one
// directory, and the sample offline installer made by scripts/make-sample-installer.py.
//
//     InstallerSandbox const sandbox(QStringLiteral(DRAIZU_INSTALLER), dir.filePath(u"run"_s));
//     QVERIFY(InstallerSandbox::makeSample(QStringLiteral(DRAIZU_SAMPLE_GENERATOR), dir.path(), {u"--files"_s, u"40"_s}));
//     InstallerSandbox::Run const listed = sandbox.run({u"list"_s, u"--json"_s});
//     QCOMPARE(listed.result()[u"installations"_s].toArray().size(), 0);

#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

class InstallerSandbox
{
public:
    struct Run
    {
        int code = -1; ///< -1 when the installer crashed, was killed or did not end in time
        QString out;
        QString err;
        /// The result object, the last line of a --json run; empty without one.
        QJsonObject result() const;
    };

    /// Runs `installer` with DRAIZU_REPOSITORY, XDG_DATA_HOME and XDG_CONFIG_HOME below `root`.
    InstallerSandbox(QString installer, QString root);

    QString root() const { return root_; }
    /// The installer's environment, to which a test may add.
    QProcessEnvironment environment() const;
    /// Runs to the end (at most a minute) with `environment`, default the sandbox's, while the
    /// event loop turns; `setup` runs in the child before the installer starts.
    Run run(QStringList const & arguments, QProcessEnvironment const & environment = {},
            std::function<void()> const & setup = {}) const;

    /// Copies the sandbox aside to `copy`, as it is; false when the copy fails.
    bool keep(QString const & copy) const;
    /// Puts a kept copy back in place of the sandbox. The repository names its files by absolute
    /// paths, so a state is only ever put back where it was made.
    bool restore(QString const & copy) const;

    /// The sample offline installer in `directory`/sample/data, made with the generator's
    /// options; false when the generator fails.
    static bool makeSample(QString const & generator, QString const & directory, QStringList const & options);
    /// Files below the directory, relative and sorted, hidden ones included; links are listed,
    /// not followed.
    static QStringList filesBelow(QString const & directory);

private:
    QString installer_;
    QString root_;
};
