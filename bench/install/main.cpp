// bench_install [WORKDIR] [ROUNDS]: draizu-installer on an offline installer image of 1 GiB in
// 20,000 files, beside the plain tools. Each round, in turn: `bsdtar -xf` of the image into an
// empty directory, `draizu-installer install` of the build (every file's SHA-256 checked),
// `rm -rf` of the extracted tree, `draizu-installer uninstall`. Then, on one installation, each
// round: `repair` of the intact installation (every file hashed) beside `sha256sum` over the same
// files, and `modify` adding the feature "PDB Files" of 100 files, removed again untimed. Prints
// the median times, their ratios and the installer's peak memory. The image is made once in
// WORKDIR (default /tmp/draizu-bench-install) and kept for the next run.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char ** environ;

using namespace Qt::StringLiterals;

namespace {

struct Outcome
{
    double seconds = 0;
    long peakKiB = 0;
};

// Runs the program to its end; its wall time and peak resident memory.
Outcome measure(QStringList const & command)
{
    std::vector<QByteArray> bytes;
    for (QString const & argument : command)
        bytes.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray & argument : bytes)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    QElapsedTimer timer;
    timer.start();
    pid_t pid = 0;
    // The programs' own output would drown the figures.
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    int const spawned = posix_spawnp(&pid, argv.front(), &quiet, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&quiet);
    if (spawned != 0)
        qFatal("cannot start %s", argv.front());
    int status = 0;
    rusage usage = {};
    wait4(pid, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        qFatal("%s failed", qPrintable(command.join(u' ')));
    return {double(timer.nsecsElapsed()) / 1e9, usage.ru_maxrss};
}

double median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char * argv[])
{
    QCoreApplication app(argc, argv);
    QStringList const arguments = app.arguments();
    QDir const work(arguments.value(1, u"/tmp/draizu-bench-install"_s));
    int const rounds = arguments.value(2, u"3"_s).toInt();
    QDir const images(work.filePath(u"pdb100"_s));
    QString const image = images.filePath(u"sample.iso"_s);
    if (!QFileInfo::exists(image)) {
        std::printf("Making the image: 20,000 files, 1 GiB, and a feature of 100 files...\n");
        measure({u"python3"_s, QStringLiteral(DRAIZU_SAMPLE_GENERATOR), images.path(), u"--files"_s, u"20000"_s,
                 u"--size"_s, QString::number(1LL << 30), u"--versions"_s, u"1"_s, u"--pdb-files"_s, u"100"_s,
                 u"--iso"_s});
        // Only the image is measured; the unpacked tree would double the disk space.
        QDir(images.filePath(u"sample"_s)).removeRecursively();
    }
    qputenv("DRAIZU_REPOSITORY", work.filePath(u"repository"_s).toLocal8Bit());
    qputenv("XDG_DATA_HOME", work.filePath(u"data"_s).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", work.filePath(u"config"_s).toLocal8Bit());
    QString const extracted = work.filePath(u"bsdtar"_s);
    QString const installed = work.filePath(u"installed"_s);
    QString const installer = QStringLiteral(DRAIZU_INSTALLER);

    std::vector<double> bsdtar, install, rm, uninstall;
    long peakKiB = 0;
    for (int round = 0; round < rounds; ++round) {
        QDir().mkpath(extracted);
        bsdtar.push_back(measure({u"bsdtar"_s, u"-xf"_s, image, u"-C"_s, extracted}).seconds);
        Outcome const installing = measure({installer, u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s,
                                            u"linux_x86_64_gcc12"_s, u"--offline-installer"_s, image,
                                            u"--installdir"_s, installed});
        install.push_back(installing.seconds);
        rm.push_back(measure({u"rm"_s, u"-rf"_s, extracted}).seconds);
        Outcome const removing = measure({installer, u"uninstall"_s, installed});
        uninstall.push_back(removing.seconds);
        peakKiB = std::max({peakKiB, installing.peakKiB, removing.peakKiB});
        std::printf("round %d: bsdtar %.2f s, install %.2f s, rm %.2f s, uninstall %.2f s\n", round + 1,
                    bsdtar.back(), install.back(), rm.back(), uninstall.back());
    }
    QStringList const source{u"--offline-installer"_s, image};
    measure(QStringList{installer, u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                        u"--installdir"_s, installed}
            + source);
    std::vector<double> repair, sha256sum, modify;
    for (int round = 0; round < rounds; ++round) {
        repair.push_back(measure(QStringList{installer, u"repair"_s, installed} + source).seconds);
        sha256sum.push_back(measure({u"sh"_s, u"-c"_s, u"cd \"$0\" && find . -type f -print0 | xargs -0 sha256sum >/dev/null"_s,
                                     installed})
                                .seconds);
        modify.push_back(
            measure(QStringList{installer, u"modify"_s, installed, u"--pdb-files"_s, u"yes"_s} + source).seconds);
        measure(QStringList{installer, u"modify"_s, installed, u"--pdb-files"_s, u"no"_s} + source);
        std::printf("round %d: repair %.2f s, sha256sum %.2f s, modify +100 files %.2f s\n", round + 1, repair.back(),
                    sha256sum.back(), modify.back());
    }
    measure({installer, u"uninstall"_s, installed});

    std::printf("install   %.2f s  bsdtar -xf %.2f s  ratio %.2f (goal <= 1.3)\n", median(install), median(bsdtar),
                median(install) / median(bsdtar));
    std::printf("uninstall %.2f s  rm -rf     %.2f s  ratio %.2f (goal <= 1.2)\n", median(uninstall), median(rm),
                median(uninstall) / median(rm));
    std::printf("repair    %.2f s  sha256sum  %.2f s  ratio %.2f (goal <= 1.0)\n", median(repair), median(sha256sum),
                median(repair) / median(sha256sum));
    std::printf("modify    %.2f s  install    %.2f s  ratio %.2f (goal <= 0.10)\n", median(modify), median(install),
                median(modify) / median(install));
    std::printf("installer peak memory %.1f MiB (goal <= 64)\n", double(peakKiB) / 1024);
    return 0;
}
