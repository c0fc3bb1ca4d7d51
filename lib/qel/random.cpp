#include "random.h"
#include "token_key.h"

#include <lib/memory.h>
#include <toolkit/traces.h>

QelStatus qel::fill_random(uint8_t *buffer, uint32_t length) {
    OwnedSession session;
    const QelStatus status = open_session(&session);
    if (status != QEL_OK)
        return status;
    return C_GenerateRandom(session.get(), buffer, length) == CKR_OK ? QEL_OK : QEL_ERR_RANDOM;
}

QelStatus qel_random(uint16_t count, uint8_t **buffer) {
    const toolkit::TracesWiped traces;
    if (count == 0 || buffer == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (*buffer != nullptr)
        return qel::fill_random(*buffer, count);
    qel::SecretBytes allocated = qel::allocate_secret(count);
    if (allocated == nullptr)
        return QEL_ERR_NO_MEMORY;
    const QelStatus status = qel::fill_random(allocated.get(), count);
    if (status == QEL_OK)
        *buffer = allocated.release();
    return status;
}
