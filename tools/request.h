// request.h: requests for certificates: PKCS#10, and the signed key and challenge of a browser.
#ifndef TOOLS_REQUEST_H
#define TOOLS_REQUEST_H

#include "key_server.h"

#include <string>
#include <vector>

namespace tool {

constexpr const char *request_label = "NEW CERTIFICATE REQUEST";

// One of the two.
struct Request {
    std::string where; // file, and block where there are several; safe to print
    Bytes bytes;       // as they stand there
    Decoded<QelCertReq> pkcs10;
    Decoded<QelNetscapeCertReq> browser;

    const char *kind() const { return pkcs10 ? "PKCS#10" : "browser"; }
    const QelName *subject() const { return pkcs10 ? pkcs10->subject : nullptr; }
    const QelKeyInfo *key() const { return pkcs10 ? pkcs10->pubKeyInfo : browser->spki; }
    const QelAlgId *algorithm() const { return pkcs10 ? pkcs10->algorithm : browser->algorithm; }
};

// A file of requests, or of other things: as read_input, but of the lines "NAME=VALUE" in which
// browsers' requests are passed on, the value of SPKAC is the input.
Input read_request_input(const std::string &path);
// All requests among what was read. Throws Failure at one that cannot be decoded.
std::vector<Request> requests_of(QelContext *context, const Input &input);
// The requests of a file, at least one.
std::vector<Request> read_requests(QelContext *context, const std::string &path);

// The library's verdict on the request's signature under its own key: whoever made it has the private
// key.
QelStatus signature_status(QelContext *context, const Request &request);
// What is odd about a request and its signature.
std::vector<std::string> request_notes(QelContext *context, const Request &request);

// A private key with its public key and its owner's name.
struct KeyOwner {
    UsableKey key;
    Decoded<QelKeyPkg> registered; // of a key at the key server
    Decoded<QelKeyInfo> own_key;   // of one in a file
    Name subject;                  // where --subject names the owner

    const QelKeyPkg *package() const {
        return registered ? registered.get() : key.key.package.get();
    }
    QelKeyInfo *public_key() const { return registered ? registered->pubKeyInfo : own_key.get(); }
    QelName *name() const { return subject ? subject.get() : package()->owner; }
};
// The owner is whom --subject names, else the owner of the key package.
KeyOwner key_owner(const Arguments &arguments, UsableKey key);

} // namespace tool

#endif
