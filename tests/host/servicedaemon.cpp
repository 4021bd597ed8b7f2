// A service for the service tests. A service's path holds no arguments here, so its manner is
// the name it runs under, "<manner>" or "<manner>-<ms>":
//   run          runs until it is stopped
//   exit         exits at once
//   ignore-<ms>  goes on for <ms> after the stop signal, then exits
//   linger-<ms>  on the stop signal leaves a child in its process group that runs for <ms>, and
//                exits a moment later, so that the supervisor sees it go down while the child runs

#include <csignal>
#include <cstdlib>
#include <string>

#include <unistd.h>

int main(int, char ** argv)
{
    std::string const name = argv[0];
    std::string const manner = name.substr(name.rfind('/') + 1);
    long ms = std::atol(manner.c_str() + manner.find('-') + 1);
    if (manner == "exit")
        return 0;
    if (manner == "run") {
        for (;;)
            ::pause();
    }
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    int signal = 0;
    sigwait(&stop, &signal);
    if (manner.starts_with("linger")) {
        if (::fork() == 0) {
            ::usleep(useconds_t(ms) * 1000);
            ::_exit(0);
        }
        // Long enough for the first poll after the stop request to see the process.
        ms = 300;
    }
    ::usleep(useconds_t(ms) * 1000);
    return 0;
}
