#include "common/Sha256.h"

#include <QtGlobal>

#include <algorithm>
#include <memory>

#include <openssl/evp.h>

namespace vesk {

namespace {

constexpr qsizetype kDigestBytes = 32;

using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

/// A context that knows its algorithm, which OpenSSL takes longer to find than to compute.
Context newContext()
{
    const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> algorithm(
        EVP_MD_fetch(nullptr, "SHA256", nullptr), &EVP_MD_free);
    Context context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!algorithm || !EVP_DigestInit_ex2(context.get(), algorithm.get(), nullptr))
        qFatal("OpenSSL is not configured for SHA-256");
    return context;
}

void check(bool done)
{
    if (!done)
        qFatal("OpenSSL cannot compute SHA-256");
}

} // namespace

QByteArray sha256(std::initializer_list<QByteArrayView> parts)
{
    static const Context context = newContext();
    const auto add = [](QByteArrayView part) {
        return EVP_DigestUpdate(context.get(), part.data(), static_cast<size_t>(part.size())) == 1;
    };
    QByteArray digest(kDigestBytes, Qt::Uninitialized);
    const bool done = EVP_DigestInit_ex2(context.get(), nullptr, nullptr)
        && std::all_of(parts.begin(), parts.end(), add)
        && EVP_DigestFinal_ex(
            context.get(), reinterpret_cast<unsigned char *>(digest.data()), nullptr);
    check(done);
    return digest;
}

RunningSha256::RunningSha256()
    : m_context(newContext().release())
    , m_copy(EVP_MD_CTX_new())
{
}

void RunningSha256::Free::operator()(evp_md_ctx_st *context) const
{
    EVP_MD_CTX_free(context);
}

void RunningSha256::add(QByteArrayView bytes)
{
    check(EVP_DigestUpdate(m_context.get(), bytes.data(), static_cast<size_t>(bytes.size())) == 1);
}

QByteArray RunningSha256::digest(QByteArrayView more) const
{
    QByteArray digest(kDigestBytes, Qt::Uninitialized);
    check(EVP_MD_CTX_copy_ex(m_copy.get(), m_context.get())
        && EVP_DigestUpdate(m_copy.get(), more.data(), static_cast<size_t>(more.size()))
        && EVP_DigestFinal_ex(
            m_copy.get(), reinterpret_cast<unsigned char *>(digest.data()), nullptr));
    return digest;
}

} // namespace vesk
