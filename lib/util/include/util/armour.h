// armour.h: what the library shares of the printable armour: the marker lines, and the printable
// encoding (base 64 of RFC 1421, also RFC 1113) of data that comes in pieces. The encoding of whole
// buffers and files is in qelp.h.
#ifndef UTIL_ARMOUR_H
#define UTIL_ARMOUR_H

#include <qel/qelp.h>
#include <toolkit/toolkit.h>

// The lines around a body, without their newlines.
struct ArmourMarkers {
    int type; // QEL_ARMOUR_...
    const char *begin;
    const char *end;
};

// The markers of a type code. Where several bits are set the first of 64, 32, 1, 2, 4, 8, 16
// counts; where none of them is, null: such text stands without markers.
const ArmourMarkers *armour_markers(int type);

inline constexpr char certificate_request_begin[] = "-----BEGIN NEW CERTIFICATE REQUEST-----";
inline constexpr char certificate_request_end[] = "-----END NEW CERTIFICATE REQUEST-----";

// A session encodes or decodes one run of data: init, any number of updates, one final, end.
//
// An update whose *buffer is null makes a buffer, hands it over with its size in *size, and the
// caller, who may use it for the calls that follow, frees it. A buffer of the caller's must have
// room for 2 x input_length characters (encoder) or input_length bytes (decoder). Characters and
// bytes that do not fill a group of four characters or three bytes are held back until the next
// call.
//
//   *produced  number of characters (encoder) or bytes (decoder) put into the buffer.
//
// QEL_ERR_BAD_PARAM: a null argument, a length or size of 0, or a session without its object.
// QEL_ERR_BUFFER_SIZE: the caller's buffer is smaller than demanded, or than a group that is held
// back and comes out now; the session is as before. QEL_ERR_NO_MEMORY. QEL_ERR_TO_RFC1421: the
// encoder refused. QEL_ERR_FROM_RFC1421: the decoder refused: a character outside the alphabet
// (white space is passed over), padding elsewhere than at the end, or an unfinished group there.
struct Rfc1421Session {
    toolkit::B_ALGORITHM_OBJ object;
};

QelStatus rfc1421_enc_init(Rfc1421Session **session_out);
QelStatus rfc1421_enc_update(Rfc1421Session *session, const uint8_t *input, uint32_t input_length,
                             char **buffer, uint32_t *size, uint32_t *produced);
QelStatus rfc1421_enc_final(Rfc1421Session *session, char *buffer, uint32_t size,
                            uint32_t *produced);

QelStatus rfc1421_dec_init(Rfc1421Session **session_out);
QelStatus rfc1421_dec_update(Rfc1421Session *session, const char *input, uint32_t input_length,
                             uint8_t **buffer, uint32_t *size, uint32_t *produced);
QelStatus rfc1421_dec_final(Rfc1421Session *session, uint8_t *buffer, uint32_t size,
                            uint32_t *produced);

// Releases a session, finished or not. QEL_ERR_BAD_PARAM: a null session, or one without its
// object, which is left alone.
QelStatus rfc1421_session_end(Rfc1421Session *session);

#endif
