#pragma once

// A runsvdir of the test's own on a temporary service directory, so that service code meets a
// real supervisor rather than a stand-in:
//
//     RunitSupervisor supervisor;
//     QVERIFY(supervisor.start());  // SVDIR now names supervisor.directory()
//     ... LN_Service::registerService(...) ...
//     QCOMPARE(supervisor.stop(), QList<qint64>());  // every process it started is gone
//
// The directory and the path above it can be searched by every user, so that a test may call
// as another. The test process becomes a subreaper, so that whatever a service leaves behind
// stays its descendant: stop() kills runsvdir, each runsv, each service and what they left,
// and reaps them. One per process, and stop() when no other child of the test runs.

#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

class RunitSupervisor
{
public:
    ~RunitSupervisor();

    /// Starts runsvdir on the directory and points SVDIR at it; false when it cannot.
    bool start();
    /// The supervised directory.
    QString directory() const;
    /// Kills every process it started or that they started, reaps them and unsets SVDIR. The
    /// ids of the test's children still running afterwards; none is the expected answer.
    QList<qint64> stop();

private:
    QTemporaryDir root_;
    QProcess runsvdir_;
};
