// certificate_text.h: what people and programs are told of a certificate.
#ifndef TOOLS_CERTIFICATE_TEXT_H
#define TOOLS_CERTIFICATE_TEXT_H

#include "credential.h"

namespace tool {

// What matters, and every field; safe to print.
std::string certificate_text(const Context &context, const Certificate &certificate);
std::string full_certificate_text(const Context &context, const Certificate &certificate);
Json certificate_json(const Context &context, const Certificate &certificate, bool full);

// "1996-01-01T00:00:00Z to 1997-01-01T00:00:00Z (expired)"
std::string validity_text(const QelValidity *validity);
Json validity_json(const QelValidity *validity);

// Says where the library, which signs and verifies what it encodes, sees other bytes than were read;
// empty where it does not.
std::string encoding_note(const Context &context, const Certificate &certificate);

} // namespace tool

#endif
