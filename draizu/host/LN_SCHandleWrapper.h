#pragma once

#include <draizu/draizu_export.h>

#include <memory>

class LN_ServiceHandle;

/// Owns one open connection to the service manager, or one open service, and closes it when
/// destroyed, so that every path out of a service function lets go of what it opened. It moves
/// and cannot be copied; nothing here throws.
class DRAIZU_EXPORT LN_SCHandleWrapper
{
public:
    /// Holds nothing.
    LN_SCHandleWrapper();
    /// Takes the handle over; a null one leaves the wrapper empty.
    explicit LN_SCHandleWrapper(std::unique_ptr<LN_ServiceHandle> handle);
    /// Takes over what `other` held and leaves it empty.
    LN_SCHandleWrapper(LN_SCHandleWrapper && other) noexcept;
    /// Closes what this held, then takes over what `other` held and leaves it empty.
    LN_SCHandleWrapper & operator=(LN_SCHandleWrapper && other) noexcept;
    LN_SCHandleWrapper(LN_SCHandleWrapper const &) = delete;
    LN_SCHandleWrapper & operator=(LN_SCHandleWrapper const &) = delete;
    /// Closes what it holds.
    ~LN_SCHandleWrapper();

    /// Closes what it holds and holds nothing; harmless when it holds nothing.
    void close();
    /// The handle, still owned here; null when it holds nothing.
    LN_ServiceHandle * handle() const;
    /// Whether it holds a handle.
    explicit operator bool() const;

private:
    std::unique_ptr<LN_ServiceHandle> handle_;
};
