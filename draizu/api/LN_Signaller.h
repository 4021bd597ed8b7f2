#pragma once

#include <draizu/draizu_export.h>

#include <QObject>
#include <QString>

#include <functional>

/// Runs a callable and offers its progress as Qt signals, for hosts that drive an operation
/// from a user interface.
class DRAIZU_EXPORT LN_Signaller : public QObject
{
    Q_OBJECT

public:
    explicit LN_Signaller(std::function<void()> function);

Q_SIGNALS:
    void progress(int currentProgress, int totalProgress, QString message);
    void finished();

public Q_SLOTS:
    /// Calls the function, then emits finished. An empty function throws std::bad_function_call.
    void run();

private:
    std::function<void()> function_;
};
