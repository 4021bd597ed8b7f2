#pragma once

#include <draizu/api/LN_ApiArgument.h>
#include <draizu/api/LN_ApiHandlerValueException.h>
#include <draizu/api/LN_ApiRequest.h>
#include <draizu/api/LN_IApiHandler.h>
#include <draizu/draizu_export.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

#include <concepts>
#include <functional>
#include <initializer_list>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

/// An API function that binds a typed callable `void(LN_ApiRequest *, Args...)`. Arguments are
/// taken by position from `args`, then by parameter name from `kwargs` (position wins when both
/// give one), then from the parameter's default, and converted by LN_ApiArgument; a missing or
/// unconvertible value raises LN_ApiHandlerValueException out of exec before the callable runs.
/// A function whose declared parameters do not match its callable's is invalid and refused at
/// every request. The handler owns a copy of the callable; the engine shares the handler.
/// Called on the engine's thread only.
class DRAIZU_EXPORT LN_ApiHandler : public LN_IApiHandler
{
public:
    /// A handler without a callable: invalid, and exec fails the request with status 500
    /// "Bad API function".
    LN_ApiHandler();

    /// A handler named `name` that calls `callable` with the arguments bound to `params`, in
    /// order; repeated names are kept, and the first one's default wins.
    template <typename Callable>
    LN_ApiHandler(QString const & name, std::initializer_list<Param> const & params, Callable && callable);

    ~LN_ApiHandler() override;

    /// Binds the arguments and calls the callable; without one, fails the request with status
    /// 500 "Bad API function". Throws LN_ApiHandlerValueException for an argument that does not
    /// bind, and lets through whatever the callable throws.
    void exec(LN_ApiRequest * request, QJsonArray const & args, QJsonObject const & kwargs) override;
    /// True when there is a callable and it takes as many arguments as there are parameters.
    bool isValid() const override;

    /// The value bound to the parameter at `index`: by position, by name, then by default.
    /// Throws LN_ApiHandlerValueException when none of the three gives one.
    QJsonValue argument(qsizetype index, QJsonArray const & args, QJsonObject const & kwargs) const;

protected:
    /// The typed side of a handler, made from the callable where the function is defined.
    class Invoker
    {
    public:
        virtual ~Invoker() = default;
        /// The number of arguments the callable takes after the request.
        virtual int argumentCount() const = 0;
        /// Binds the arguments through the handler and calls; throws as exec does.
        virtual void call(LN_ApiHandler const & handler, LN_ApiRequest * request, QJsonArray const & args,
                          QJsonObject const & kwargs) = 0;
    };

private:
    template <typename... Args>
    class TypedInvoker;

    template <typename Callable, typename... Args>
    static std::unique_ptr<Invoker> makeInvoker_(Callable && callable, void (*)(LN_ApiRequest *, Args...));

    void setParams_(std::initializer_list<Param> const & params);

    std::unique_ptr<Invoker> invoker_;
};

/// Calls a function taking Args after converting each argument with LN_ApiArgument; an
/// argument that does not convert raises LN_ApiHandlerValueException before the call.
template <typename... Args>
class LN_ApiHandler::TypedInvoker final : public LN_ApiHandler::Invoker
{
public:
    explicit TypedInvoker(std::function<void(LN_ApiRequest *, Args...)> function)
        : function_(std::move(function))
    {
    }

    int argumentCount() const override { return static_cast<int>(sizeof...(Args)); }

    void call(LN_ApiHandler const & handler, LN_ApiRequest * request, QJsonArray const & args,
              QJsonObject const & kwargs) override
    {
        callWith_(handler, request, args, kwargs, std::index_sequence_for<Args...>{});
    }

private:
    template <std::size_t... Index>
    void callWith_(LN_ApiHandler const & handler, LN_ApiRequest * request, QJsonArray const & args,
                  QJsonObject const & kwargs, std::index_sequence<Index...>)
    {
        // Braced initialisation converts the arguments in declaration order.
        std::tuple<std::decay_t<Args>...> const values{
            LN_ApiArgument<std::decay_t<Args>>::from(handler.argument(Index, args, kwargs))...};
        std::apply([&](auto const &... value) { function_(request, value...); }, values);
    }

    std::function<void(LN_ApiRequest *, Args...)> function_;
};

/// Internals of LN_ApiHandler's constructor: the plain function type of a callable's call.
namespace LN_ApiHandlerDetail {

template <typename T>
struct Signature;

template <typename Class, typename... Args>
struct Signature<void (Class::*)(LN_ApiRequest *, Args...) const>
{
    using Pointer = void (*)(LN_ApiRequest *, Args...);
};

template <typename Class, typename... Args>
struct Signature<void (Class::*)(LN_ApiRequest *, Args...)>
{
    using Pointer = void (*)(LN_ApiRequest *, Args...);
};

template <typename... Args>
struct Signature<void (*)(LN_ApiRequest *, Args...)>
{
    using Pointer = void (*)(LN_ApiRequest *, Args...);
};

template <typename Callable>
struct CallableSignature
{
    using Pointer = typename Signature<decltype(&Callable::operator())>::Pointer;
};

template <typename Callable>
    requires std::is_pointer_v<Callable>
struct CallableSignature<Callable>
{
    using Pointer = typename Signature<Callable>::Pointer;
};

template <typename Callable>
using SignatureOf = typename CallableSignature<std::decay_t<Callable>>::Pointer;

} // namespace LN_ApiHandlerDetail

template <typename Callable, typename... Args>
std::unique_ptr<LN_ApiHandler::Invoker> LN_ApiHandler::makeInvoker_(Callable && callable,
                                                                    void (*)(LN_ApiRequest *, Args...))
{
    return std::make_unique<TypedInvoker<Args...>>(std::forward<Callable>(callable));
}

template <typename Callable>
LN_ApiHandler::LN_ApiHandler(QString const & name, std::initializer_list<Param> const & params, Callable && callable)
    : LN_IApiHandler(name, {})
    , invoker_(makeInvoker_(std::forward<Callable>(callable), LN_ApiHandlerDetail::SignatureOf<Callable>()))
{
    setParams_(params);
}
