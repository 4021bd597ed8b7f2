#pragma once

#include <draizu/api/LN_ApiHandlerValueException.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <cmath>
#include <concepts>
#include <limits>
#include <type_traits>

/// Conversion of one JSON argument to the type an API function declares: `from` gives the value
/// or raises LN_ApiHandlerValueException for one that does not convert exactly (a string for a
/// number, 1.5 for an int, a number out of range). Stateless; safe on any thread. Specialise
/// for further types where functions are defined.
template <typename T>
struct LN_ApiArgument;

/// An argument taken as the JSON value itself.
template <>
struct LN_ApiArgument<QJsonValue>
{
    /// The value as it is; never fails.
    static QJsonValue from(QJsonValue const & value) { return value; }
};

/// An argument that must be a JSON string.
template <>
struct LN_ApiArgument<QString>
{
    /// A JSON string; anything else does not convert.
    static QString from(QJsonValue const & value)
    {
        if (!value.isString())
            throw LN_ApiHandlerValueException();
        return value.toString();
    }
};

/// An argument that must be a JSON boolean.
template <>
struct LN_ApiArgument<bool>
{
    /// A JSON boolean; anything else, numbers included, does not convert.
    static bool from(QJsonValue const & value)
    {
        if (!value.isBool())
            throw LN_ApiHandlerValueException();
        return value.toBool();
    }
};

/// An argument that must be a whole JSON number within the integer type's range.
template <std::integral T>
    requires(!std::same_as<T, bool>)
struct LN_ApiArgument<T>
{
    /// A JSON number that is whole and within T's range; anything else does not convert.
    static T from(QJsonValue const & value)
    {
        if (!value.isDouble())
            throw LN_ApiHandlerValueException();
        double const number = value.toDouble();
        // The bounds keep the cast defined: [min, 2^digits) is exactly T's range.
        double const upper = std::ldexp(1.0, std::numeric_limits<T>::digits);
        if (number != std::trunc(number) || number < static_cast<double>(std::numeric_limits<T>::min())
            || number >= upper)
            throw LN_ApiHandlerValueException();
        return static_cast<T>(number);
    }
};

/// An argument that must be a JSON number.
template <std::floating_point T>
struct LN_ApiArgument<T>
{
    /// A JSON number, rounded to T; anything else does not convert.
    static T from(QJsonValue const & value)
    {
        if (!value.isDouble())
            throw LN_ApiHandlerValueException();
        return static_cast<T>(value.toDouble());
    }
};

/// An argument that must be a JSON object.
template <>
struct LN_ApiArgument<QJsonObject>
{
    /// A JSON object; anything else does not convert.
    static QJsonObject from(QJsonValue const & value)
    {
        if (!value.isObject())
            throw LN_ApiHandlerValueException();
        return value.toObject();
    }
};

/// An argument that must be a JSON array.
template <>
struct LN_ApiArgument<QJsonArray>
{
    /// A JSON array; anything else does not convert.
    static QJsonArray from(QJsonValue const & value)
    {
        if (!value.isArray())
            throw LN_ApiHandlerValueException();
        return value.toArray();
    }
};

/// An argument that must be a JSON array of strings.
template <>
struct LN_ApiArgument<QStringList>
{
    /// A JSON array of strings only; anything else does not convert.
    static QStringList from(QJsonValue const & value)
    {
        QStringList result;
        for (QJsonValue const & element : LN_ApiArgument<QJsonArray>::from(value))
            result.append(LN_ApiArgument<QString>::from(element));
        return result;
    }
};
