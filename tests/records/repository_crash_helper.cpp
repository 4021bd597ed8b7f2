// Child program of tst_repositorycrash: applies one change to a repository in the order that
// recovery relies on, and stops itself at a named point so that the test can kill it there.
//
//   repository_crash_helper <repository> <root> <scenario> <stop>
//
// Scenarios: modify (new file lists for "a"), add ("e"), remove ("b"), move ("c" to "c2").
// Stops: new-manifest (first manifest written by save("new.json")), new (after it), disk
// (half the files changed), final-manifest (first manifest written by saveFinal), overview
// (after "overview.json" is written, before the clean-up), none.
// At the stop it writes "stopped" and sends itself SIGSTOP.

#include "RepositoryFixture.h"

#include <draizu/records/LN_InstallMetadata.h>

#include <QCoreApplication>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace RepositoryFixture;

namespace {

// Only plain C data here: it is read from inside close().
char stopAt[32] = "";
char phase[32] = "";

void stopHere()
{
    static char const line[] = "stopped\n";
    if (::write(STDOUT_FILENO, line, sizeof line - 1) < 0)
        std::_Exit(3);
    std::raise(SIGSTOP);
    std::_Exit(4); // a stopped helper is only ever killed
}

bool endsWith(char const * text, char const * tail)
{
    size_t const a = std::strlen(text);
    size_t const b = std::strlen(tail);
    return a >= b && std::strcmp(text + a - b, tail) == 0;
}

// Called when the library has finished writing a file.
void fileWritten(char const * path)
{
    if (std::strcmp(phase, stopAt) == 0 && endsWith(path, ".json") && !endsWith(path, "/overview.json")
        && !endsWith(path, "/new.json") && !endsWith(path, "/crash.json"))
        stopHere();
    if (std::strcmp(stopAt, "overview") == 0 && std::strcmp(phase, "final-manifest") == 0
        && endsWith(path, "/overview.json"))
        stopHere();
}

struct DiskStep
{
    QString root;
    Content file;
    bool remove = false;
};

} // namespace

// The library writes every repository file through QFile, whose close ends up here: this is
// the one place that sees the repository between two of its files. It must be visible to the
// libraries, which the build hides by default.
extern "C" __attribute__((visibility("default"))) int close(int fd)
{
    char path[PATH_MAX] = "";
    bool written = false;
    if (stopAt[0] != '\0') {
        int const flags = ::fcntl(fd, F_GETFL);
        char link[64];
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        ssize_t const length = ::readlink(link, path, sizeof path - 1);
        written = flags != -1 && (flags & O_ACCMODE) != O_RDONLY && length > 0;
        if (written)
            path[length] = '\0';
    }
    int const result = static_cast<int>(::syscall(SYS_close, fd));
    if (written)
        fileWritten(path);
    return result;
}

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 5 || std::strlen(argv[4]) >= sizeof stopAt)
        return 100;
    QDir const repository(QString::fromLocal8Bit(argv[1]));
    QString const root = QString::fromLocal8Bit(argv[2]);
    QString const scenario = QString::fromLocal8Bit(argv[3]);
    std::strcpy(stopAt, argv[4]);
    auto const dir = [&root](QString const & name) { return QDir(root).filePath(name); };

    try {
        LN_InstallMetadata repo(repository);
        QList<DiskStep> steps;
        QString changed;
        if (scenario == u"modify"_s) {
            changed = dir(u"a"_s);
            Contents product = productContents(u"a"_s);
            Content const removed = product.takeLast();
            product.append({u"bin/new-tool"_s, "new tool"});
            Contents const documents = docsContents + Contents{{u"docs/guide.txt"_s, "guide"}};
            repo.insert(record(changed, product, documents));
            steps = {{changed, product.constLast()}, {changed, documents.constLast()}, {changed, removed, true}};
        } else if (scenario == u"remove"_s) {
            for (Content const & file : productContents(u"b"_s) + docsContents)
                steps.append({dir(u"b"_s), file, true});
            repo.remove(dir(u"b"_s));
        } else if (scenario == u"add"_s || scenario == u"move"_s) {
            QString const from = scenario == u"add"_s ? u"e"_s : u"c"_s;
            changed = dir(scenario == u"add"_s ? from : u"c2"_s);
            repo.remove(dir(from));
            repo.insert(record(changed, productContents(from), docsContents));
            for (Content const & file : productContents(from) + docsContents)
                steps.append({changed, file});
            for (Content const & file : productContents(from) + docsContents)
                if (changed != dir(from))
                    steps.append({dir(from), file, true});
        } else {
            return 100;
        }
        // Shared optional files give saveFinal manifests of its own to write.
        if (!changed.isEmpty()) {
            repo.installations[changed].ready = false;
            repo.installations[changed].setSofsFiles(u"Orvanis"_s, {{u"sofs/base.dat"_s, true}});
            repo.installations[changed].setSofsFiles(docs, {{u"sofs/extra.dat"_s, false}});
        }

        std::strcpy(phase, "new-manifest");
        repo.save(u"new.json"_s);
        std::strcpy(phase, "");
        if (std::strcmp(stopAt, "new") == 0)
            stopHere();

        for (qsizetype i = 0; i < steps.size(); ++i) {
            if (i == steps.size() / 2 && std::strcmp(stopAt, "disk") == 0)
                stopHere();
            DiskStep const & step = steps.at(i);
            if (step.remove ? !QFile::remove(QDir(step.root).filePath(step.file.path))
                            : !writeContent(step.root, step.file))
                return 101;
        }

        if (!changed.isEmpty())
            repo.installations[changed].ready = true;
        std::strcpy(phase, "final-manifest");
        repo.saveFinal();
        std::strcpy(phase, "");
    } catch (std::exception const & e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 102;
    }
    return 0;
}
