/*
 * oss.h: the ASN.1 runtime: encodes, decodes, prints and frees values by PDU number under a control
 * table (schema.h). Written after X.680 (types) and X.690 (BER and DER).
 *
 * All state lives in an environment, a block of OSS_ENVIRONMENT_SIZE bytes that the caller provides
 * and that one thread uses at a time. Functions return an OssStatus; after a failure ossGetErrMsg
 * says more. PDU numbers start at 1.
 *
 * Values are the records that the control table describes. Each block in a decoded value comes from
 * malloc and owns what it points to, so that a caller may also take a value apart with free(),
 * unless contents of it are in a marked file.
 */
#ifndef DENCODER_OSS_H
#define DENCODER_OSS_H

#include <cstdint>
#include <cstdio>

namespace dencoder {
struct ControlTable;
}

struct OssEnvironment;

constexpr unsigned OSS_ENVIRONMENT_SIZE = 1564;

enum OssStatus : int {
    OSS_DONE = 0,
    OSS_NO_MEMORY,
    OSS_BAD_ARGUMENT, // null, unknown PDU or flag, environment not in use
    OSS_NOT_LINKED,   // encoding rules without a linked codec
    OSS_MALFORMED,    // decoding: no BER encoding of the type
    OSS_LEFT_OVER,    // decoding: bytes behind the value
    OSS_TOO_DEEP,     // decoding: nested beyond the runtime's bounds
    OSS_BAD_VALUE,    // encoding: the value breaks its type
    OSS_TOO_LARGE,    // encoding: more than 4 GiB
    OSS_SMALL_BUFFER, // encoding: the caller's buffer cannot hold it
    OSS_FILE_ERROR    // a marked file could not be read or written
};

/* Encoding rules. There is no codec for the packed rules. */
enum OssRules : int { OSS_BER = 0, OSS_PER_ALIGNED = 1, OSS_PER_UNALIGNED = 2, OSS_DER = 3 };

enum : uint32_t {
    OSS_INDEFINITE = 32, // encoding flag: indefinite lengths for constructed values; not under DER
    OSS_TRACE = 2        // decoding flag: every decoded PDU is printed, secrets and all
};

/* Bytes in memory; or, where value is a handle from ossMarkObj, the contents of that file. */
struct OssBuf {
    uint32_t length;
    uint8_t *value;
};

extern "C" {

/* ---- Environment --------------------------------------------------------------------------------
 */

/*
 * ossinit starts an environment: BER, no flags, and the codecs that the table's link routine asks
 * for. environment  zero-filled, aligned for any type. table        must outlive the environment.
 * OSS_BAD_ARGUMENT.
 */
OssStatus ossinit(OssEnvironment *environment, const dencoder::ControlTable *table);

/* ossterm forgets all handles, removing the temporary files among them, and ends the environment.
 */
void ossterm(OssEnvironment *environment);

/* What a control table's link routine calls. Without the checker, alphabets are not enforced. */
void ossLinkBer(OssEnvironment *environment);
void ossLinkDer(OssEnvironment *environment);
void ossLinkConstraint(OssEnvironment *environment);

/* Rules for encoding; the decoder takes BER, of which DER is a part. OSS_NOT_LINKED. */
OssStatus ossSetEncodingRules(OssEnvironment *environment, OssRules rules);
OssRules ossGetEncodingRules(const OssEnvironment *environment);

/* Replace the flags. OSS_BAD_ARGUMENT for a bit that has no meaning. */
OssStatus ossSetEncodingFlags(OssEnvironment *environment, uint32_t flags);
OssStatus ossSetDecodingFlags(OssEnvironment *environment, uint32_t flags);

/* Where ossPrintPDU (at first: stdout) and the trace (stderr) write; null restores that. */
void ossSetPrintStream(OssEnvironment *environment, FILE *stream);
void ossSetTraceStream(OssEnvironment *environment, FILE *stream);

/*
 * ossGetErrMsg tells what the last failed call met: the component, the reason, the offset in the
 * encoding. The text belongs to the environment and holds until its next call.
 */
const char *ossGetErrMsg(OssEnvironment *environment);

/* ---- Values -------------------------------------------------------------------------------------
 */

/*
 * ossEncode encodes one value under the environment's rules.
 *   output  value null: the runtime allocates the exact size, to be released with ossFreeBuf or
 *           free(). Else value is the caller's buffer and length its capacity; or value is a marked
 *           file, which is rewritten, and length is not looked at. On success length is the size of
 *           the encoding; on failure buffer and length are as they were.
 * DER sorts SET OF values; BER keeps the order of the list. Redundant leading octets of long
 * integers are dropped. A field with a default is written when its mask bit is set or its value is
 * another. An open type must hold exactly one encoded value.
 * OSS_NO_MEMORY, OSS_BAD_ARGUMENT, OSS_NOT_LINKED, OSS_BAD_VALUE, OSS_TOO_LARGE, OSS_SMALL_BUFFER,
 * OSS_FILE_ERROR.
 */
OssStatus ossEncode(OssEnvironment *environment, int pdu, const void *value, OssBuf *output);

/*
 * ossDecode decodes one value that fills the input to its end.
 *   pdu        number of the type to expect.
 *   input      bytes, or a marked file, of which length is not looked at.
 *   value_out  the record, for ossFreePDU; null on failure.
 * Accepted: BER with definite and indefinite lengths, in any form, and strings in pieces. Refused
 * although a lenient reader might take it: integers and identifiers with redundant leading octets
 * (X.690 8.3.2, 8.19.2), zero characters inside strings (the records end there), identifiers beyond
 * 32 bits per component. Printable strings may hold any 7-bit character, as many old encoders wrote
 * them; IA5 strings 7-bit characters; T61 strings all.
 * OSS_NO_MEMORY, OSS_BAD_ARGUMENT, OSS_NOT_LINKED, OSS_MALFORMED, OSS_LEFT_OVER, OSS_TOO_DEEP,
 * OSS_FILE_ERROR.
 */
OssStatus ossDecode(OssEnvironment *environment, const int *pdu, const OssBuf *input,
                    void **value_out);

/*
 * ossFreePDU releases a value with everything it owns. The contents of strings, integers' octets
 * and open types are zeroed first, since any of them may be a secret. Optional parts are reached
 * through their mask bit where they have one. Handles stay, but a temporary file made by the
 * decoder that has not been unmarked is removed with its handle. Null is ignored.
 */
OssStatus ossFreePDU(OssEnvironment *environment, int pdu, void *value);

/* ossFreeBuf releases an encoding that ossEncode allocated. */
void ossFreeBuf(OssEnvironment *environment, void *buffer);

/* ossPrintPDU writes the value in a form close to ASN.1 value notation. OSS_FILE_ERROR: the stream.
 */
OssStatus ossPrintPDU(OssEnvironment *environment, int pdu, const void *value);

/* ---- Marked files -------------------------------------------------------------------------------
 */

/*
 * ossMarkObj makes a handle that stands for a file wherever a type keeps its octets in a file, and
 * in OssBuf.value. The file is opened only when it is needed. Its contents pass in blocks. kind 1,
 * a file. file_name  copied. Returns the handle, which the environment owns, or null (other kind,
 * no memory).
 */
void *ossMarkObj(OssEnvironment *environment, int kind, const char *file_name);

/*
 * ossUnmarkObj forgets a handle and returns its file name, which the caller frees. A temporary file
 * of the decoder becomes the caller's to remove. Null for what is no handle of this environment.
 */
void *ossUnmarkObj(OssEnvironment *environment, void *handle);

} // extern "C"

#endif
