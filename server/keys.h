// keys.h: what the key server does with keys, by means of the library.
#ifndef SERVER_KEYS_H
#define SERVER_KEYS_H

#include <optional>
#include <span>

#include <qel/qelserv.h>

#include "secret.h"

using View = std::span<const uint8_t>;

// The usage that a key package names; QELSERV_BAD_PACKAGE when it cannot be read, its public key is
// longer than one whose private key a message can bring, or its signature is not good.
qelserv_status check_package(View package, int *usage_out);

// The private key's octets out of an encoded PrivateKeyInfo (PKCS#8). QELSERV_BAD_KEY when they do not
// belong to the package.
qelserv_status open_private_key(View package, View private_key_info, SecretBytes *key_out);

bool have_same_public_key(View package, View other);

// Signs an encoded DigestInfo of MD2 or MD5; anything else is QELSERV_BAD_ARGUMENT, so that a signing
// key never works on a block of another's choice.
qelserv_status sign(const SecretBytes &private_key, View digest_info, SecretBytes *signature_out);
// Opens a PKCS#1 block of type 2.
qelserv_status decrypt(const SecretBytes &private_key, View block, SecretBytes *data_out);
// Makes a PKCS#1 block of type 2 under the package's public key.
qelserv_status encrypt(View package, View data, SecretBytes *block_out);

// Whether this is the encoded algorithm identifier of rsaEncryption.
bool is_rsa_encryption(View algorithm);

#endif
