#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QtGlobal>

#include <memory>
#include <optional>

/// A digest computed piece by piece while data streams past. SHA-256 goes through libcrypto,
/// several times faster here than Qt's own; every other algorithm through QCryptographicHash.
class LN_DigestStream
{
public:
    /// A digest of `algorithm` over no data yet.
    explicit LN_DigestStream(QCryptographicHash::Algorithm algorithm);
    ~LN_DigestStream();

    /// Adds the bytes.
    void add(char const * data, qint64 size);
    /// The raw digest of everything added; empty when libcrypto failed.
    QByteArray result();

private:
    struct ContextFree
    {
        void operator()(struct evp_md_ctx_st * context) const;
    };

    std::unique_ptr<struct evp_md_ctx_st, ContextFree> context_;
    std::optional<QCryptographicHash> qtHash_;
    bool failed_ = false;
};
