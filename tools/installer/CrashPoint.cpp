#include "CrashPoint.h"

#include <QString>

#include <csignal>

#include <unistd.h>

namespace {

qint64 killAfter()
{
    bool ok = false;
    qint64 const steps = qEnvironmentVariable("DRAIZU_INSTALLER_TEST_KILL_AFTER").toLongLong(&ok);
    return ok && steps > 0 ? steps : 0;
}

} // namespace

void CrashPoint::fileStepDone()
{
    static qint64 const trigger = killAfter();
    static qint64 steps = 0;
    if (trigger != 0 && ++steps == trigger)
        ::kill(::getpid(), SIGKILL);
}
