#pragma once

#include <draizu/draizu_export.h>

#include <QObject>
#include <QString>

#include <functional>

/// Runs a callable and offers its progress as Qt signals, for hosts that drive an operation
/// from a user interface. It owns the callable; whatever the callable throws passes out of
/// `run`, and `finished` is then not emitted. The library emits nothing on `progress`: the
/// callable or its host does. Use on the thread the object lives in.
class DRAIZU_EXPORT LN_Signaller : public QObject
{
    Q_OBJECT

public:
    /// Takes over the callable.
    explicit LN_Signaller(std::function<void()> function);

Q_SIGNALS:
    /// Progress of the operation, for a host to emit and a user interface to show.
    void progress(int currentProgress, int totalProgress, QString message);
    /// The callable has returned.
    void finished();

public Q_SLOTS:
    /// Calls the function, then emits finished. An empty function throws std::bad_function_call.
    void run();

private:
    std::function<void()> function_;
};
