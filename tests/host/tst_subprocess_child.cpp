// Child program for tst_subprocess: `tst_subprocess_child <mode> [text]`.
//   <number>     writes text, exits with that number
//   stderr       writes text to the error stream
//   stdin        reads its input to the end and says how much it got
//   crash        writes text, then aborts
//   hang         writes text, then sleeps
//   stubborn     as hang, but ignores SIGTERM
//   pwd          writes its working directory

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <unistd.h>

int main(int argc, char ** argv)
{
    std::string const mode = argc > 1 ? argv[1] : "";
    char const * const text = argc > 2 ? argv[2] : "";

    if (mode == "stdin") {
        long total = 0;
        char buffer[256];
        for (std::size_t count; (count = std::fread(buffer, 1, sizeof buffer, stdin)) > 0;)
            total += static_cast<long>(count);
        std::printf("read %ld bytes", total);
        return 0;
    }
    if (mode == "pwd") {
        char directory[4096];
        return ::getcwd(directory, sizeof directory) && std::fputs(directory, stdout) >= 0 ? 0 : 101;
    }
    if (mode == "stubborn")
        std::signal(SIGTERM, SIG_IGN);
    std::fputs(text, mode == "stderr" ? stderr : stdout);
    std::fflush(nullptr);
    if (mode == "crash")
        std::abort();
    while (mode == "hang" || mode == "stubborn")
        std::this_thread::sleep_for(std::chrono::seconds(60));
    return std::atoi(mode.c_str());
}
