#include <cryptoki/generate.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include <lib/memory.h>
#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

constexpr char random_device[] = "/dev/random";
constexpr uint32_t seed_length = 256;

int open_device() {
    int descriptor = -1;
    do
        descriptor = open(random_device, O_RDONLY | O_CLOEXEC);
    while (descriptor == -1 && errno == EINTR);
    return descriptor;
}

// How many bytes came before the end of the file or an error.
std::size_t read_device(int descriptor, uint8_t *buffer, std::size_t length) {
    std::size_t filled = 0;
    while (filled < length) {
        const ssize_t got = read(descriptor, buffer + filled, length - filled);
        if (got > 0)
            filled += static_cast<std::size_t>(got);
        else if (got == 0 || errno != EINTR)
            break;
    }
    return filled;
}

bool close_device(int descriptor) {
    int result = 0;
    do
        result = close(descriptor);
    while (result == -1 && errno == EINTR);
    return result == 0;
}

} // namespace

CK_RV C_GenerateRandom(CK_SESSION_HANDLE session, uint8_t *buffer, uint32_t length) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (buffer == nullptr || length == 0)
        return CKR_DATA_INVALID;
    const int descriptor = open_device();
    if (descriptor == -1)
        return CKR_DEVICE_ERROR;
    const std::size_t filled = read_device(descriptor, buffer, length);
    const bool closed = close_device(descriptor);
    return closed && filled == length ? CKR_OK : CKR_DEVICE_ERROR;
}

CK_RV gen_random_alg(CK_SESSION_HANDLE session) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    qel::SecretBytes seed = qel::allocate_secret(seed_length);
    if (seed == nullptr)
        return CKR_HOST_MEMORY;
    const CK_RV result = C_GenerateRandom(session, seed.get(), seed_length);
    if (result != CKR_OK)
        return result;
    B_ALGORITHM_OBJ created = nullptr;
    if (B_CreateAlgorithmObject(&created) != 0)
        return CKR_DATA_INVALID;
    OwnedAlgorithm random(created);
    if (B_SetAlgorithmInfo(created, AI_MD5Random, nullptr) != 0 ||
        B_RandomInit(created, chooser, nullptr) != 0 ||
        B_RandomUpdate(created, seed.get(), seed_length, nullptr) != 0)
        return CKR_DATA_INVALID;
    forget_random(session);
    session->random = random.release();
    session->seed = seed.release();
    session->seed_length = seed_length;
    return CKR_OK;
}
