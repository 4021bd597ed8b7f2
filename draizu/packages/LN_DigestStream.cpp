#include <draizu/packages/LN_DigestStream_p.h>

#include <openssl/evp.h>

LN_DigestStream::LN_DigestStream(QCryptographicHash::Algorithm algorithm)
{
    if (algorithm != QCryptographicHash::Sha256) {
        qtHash_.emplace(algorithm);
        return;
    }
    context_.reset(EVP_MD_CTX_new());
    failed_ = !context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1;
}

LN_DigestStream::~LN_DigestStream() = default;

void LN_DigestStream::add(char const * data, qint64 size)
{
    if (qtHash_)
        qtHash_->addData(QByteArrayView(data, size));
    else if (!failed_)
        failed_ = EVP_DigestUpdate(context_.get(), data, static_cast<size_t>(size)) != 1;
}

QByteArray LN_DigestStream::result()
{
    if (qtHash_)
        return qtHash_->result();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (failed_ || EVP_DigestFinal_ex(context_.get(), digest, &length) != 1)
        return QByteArray();
    return QByteArray(reinterpret_cast<char const *>(digest), static_cast<qsizetype>(length));
}

void LN_DigestStream::ContextFree::operator()(EVP_MD_CTX * context) const
{
    EVP_MD_CTX_free(context);
}
