#include "objects.h"
#include "oids.h"

#include <toolkit/md2.h>
#include <toolkit/md5.h>

namespace toolkit {
namespace {

template <class State, auto function> void init(void *state) {
    function(static_cast<State *>(state));
}

template <class State, auto function>
void update(void *state, const uint8_t *data, std::size_t size) {
    function(static_cast<State *>(state), data, size);
}

template <class State, auto function> void final(void *state, uint8_t *digest) {
    function(static_cast<State *>(state), digest);
}

static_assert(md2_digest_size == digest_size && md5_digest_size == digest_size);

constexpr DigestMethod md2 = {sizeof(Md2), init<Md2, md2_init>, update<Md2, md2_update>,
                              final<Md2, md2_final>, oid_md2};
constexpr DigestMethod md5 = {sizeof(Md5), init<Md5, md5_init>, update<Md5, md5_update>,
                              final<Md5, md5_final>, oid_md5};

} // namespace

constexpr AlgorithmMethod AM_MD2 = {.provides = Primitive::md2, .digest = &md2};
constexpr AlgorithmMethod AM_MD5 = {.provides = Primitive::md5, .digest = &md5};
constexpr AlgorithmMethod AM_MD = {.provides = Primitive::generic_digest};
constexpr AlgorithmMethod AM_MD2_RANDOM = {.provides = Primitive::md2_random};
constexpr AlgorithmMethod AM_MD5_RANDOM = {.provides = Primitive::md5_random};

} // namespace toolkit
