#include "Sha256.h"

#include <openssl/evp.h>

Sha256::Sha256()
    : context_(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr);
}

Sha256::~Sha256() = default;

void Sha256::Free::operator()(evp_md_ctx_st * context) const
{
    EVP_MD_CTX_free(context);
}

void Sha256::addData(char const * data, qsizetype size)
{
    EVP_DigestUpdate(context_.get(), data, size_t(size));
}

QByteArray Sha256::result()
{
    QByteArray digest(EVP_MAX_MD_SIZE, Qt::Uninitialized);
    unsigned int length = 0;
    EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char *>(digest.data()), &length);
    digest.truncate(length);
    EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr);
    return digest;
}
