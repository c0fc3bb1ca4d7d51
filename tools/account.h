// account.h: what the library writes of credentials for people (<qel/print.h>), safe for a terminal.
#ifndef TOOLS_ACCOUNT_H
#define TOOLS_ACCOUNT_H

#include "request.h"

#include <functional>

namespace tool {

// Each throws Failure where the library cannot write the account to its end, or where a text in it
// would break a line and so could pass for another one.

// Every field, two blanks in.
std::string cert_account(QelContext *context, const QelCert &cert);
std::string keypkg_account(QelContext *context, const QelKeyPkg &package);
std::string trusted_key_account(QelContext *context, const QelTrustedKey &key);
std::string request_account(QelContext *context, const Request &request);
// An account, or why there is none.
std::string account_or_reason(const std::function<std::string()> &account);

// The entry for a log of issued certificates.
std::string cert_log_entry(QelContext *context, const QelCert &cert);

} // namespace tool

#endif
