#include <draizu/api/LN_Signaller.h>

LN_Signaller::LN_Signaller(std::function<void()> function)
    : function_(std::move(function))
{
}

void LN_Signaller::run()
{
    function_();
    Q_EMIT finished();
}
