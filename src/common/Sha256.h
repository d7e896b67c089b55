#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <initializer_list>
#include <memory>

struct evp_md_ctx_st;

namespace vesk {

/// The SHA-256 digest (FIPS 180-4) of \a parts one after the other, 32 bytes. By OpenSSL, which
/// uses the processor's instructions for it where there are any.
QByteArray sha256(std::initializer_list<QByteArrayView> parts);

/// The digest of bytes that come one after the other, which may be asked for in between.
class RunningSha256
{
public:
    RunningSha256();

    void add(QByteArrayView bytes);
    /// Of all that was added, followed by \a more, which is not added.
    QByteArray digest(QByteArrayView more = {}) const;

private:
    struct Free
    {
        void operator()(evp_md_ctx_st *context) const;
    };
    using Context = std::unique_ptr<evp_md_ctx_st, Free>;

    Context m_context;
    Context m_copy; ///< ends a digest, which m_context goes on with
};

} // namespace vesk
