// Child program for tst_subprocess: `tst_subprocess_child <mode> [argument...]`.
//   exit <code> <text>    writes text, exits with code
//   stderr <text>         writes text to the error stream
//   stdin                 reads its input to the end and says how much it got
//   crash <text>          writes text, then aborts
//   hang <text>           writes text, then sleeps
//   stubborn <text>       as hang, but ignores SIGTERM
//   pwd                   writes its working directory

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <unistd.h>

namespace {

void say(std::FILE * stream, char const * text)
{
    std::fputs(text, stream);
    std::fflush(stream);
}

[[noreturn]] void sleepLong()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::seconds(60));
}

} // namespace

int main(int argc, char ** argv)
{
    if (argc < 2)
        return 100;
    char const * const mode = argv[1];
    char const * const text = argc > 2 ? argv[argc - 1] : "";

    if (std::strcmp(mode, "exit") == 0 && argc == 4) {
        say(stdout, text);
        return std::atoi(argv[2]);
    }
    if (std::strcmp(mode, "stderr") == 0) {
        say(stderr, text);
        return 0;
    }
    if (std::strcmp(mode, "stdin") == 0) {
        long total = 0;
        char buffer[256];
        for (std::size_t count; (count = std::fread(buffer, 1, sizeof buffer, stdin)) > 0;)
            total += static_cast<long>(count);
        std::printf("read %ld bytes", total);
        return 0;
    }
    if (std::strcmp(mode, "crash") == 0) {
        say(stdout, text);
        std::abort();
    }
    if (std::strcmp(mode, "hang") == 0) {
        say(stdout, text);
        sleepLong();
    }
    if (std::strcmp(mode, "stubborn") == 0) {
        std::signal(SIGTERM, SIG_IGN);
        say(stdout, text);
        sleepLong();
    }
    if (std::strcmp(mode, "pwd") == 0) {
        char directory[4096];
        if (!::getcwd(directory, sizeof directory))
            return 101;
        say(stdout, directory);
        return 0;
    }
    return 100;
}
