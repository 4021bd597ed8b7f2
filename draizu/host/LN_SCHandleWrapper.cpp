#include <draizu/host/LN_SCHandleWrapper.h>

#include <draizu/platform/LN_ServiceManager_p.h>

LN_SCHandleWrapper::LN_SCHandleWrapper() = default;

LN_SCHandleWrapper::LN_SCHandleWrapper(std::unique_ptr<LN_ServiceHandle> handle)
    : handle_(std::move(handle))
{
}

LN_SCHandleWrapper::LN_SCHandleWrapper(LN_SCHandleWrapper && other) noexcept = default;

LN_SCHandleWrapper & LN_SCHandleWrapper::operator=(LN_SCHandleWrapper && other) noexcept = default;

LN_SCHandleWrapper::~LN_SCHandleWrapper() = default;

void LN_SCHandleWrapper::close()
{
    handle_.reset();
}

LN_ServiceHandle * LN_SCHandleWrapper::handle() const
{
    return handle_.get();
}

LN_SCHandleWrapper::operator bool() const
{
    return handle_ != nullptr;
}
