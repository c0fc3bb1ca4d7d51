#include <qel/qelserv.h>

#include "pipe_signal.h"

namespace {

constexpr timeval time_out = {25, 0};

template <class Argument, class Result>
clnt_stat call(CLIENT *client, rpcproc_t procedure, bool_t (*argument_routine)(XDR *, Argument *),
               Argument *argument, bool_t (*result_routine)(XDR *, Result *), Result *result) {
    // What cannot be encoded whole is not begun: its first part would be sent as a call.
    if (xdr_sizeof(reinterpret_cast<xdrproc_t>(argument_routine), argument) == 0)
        return RPC_CANTENCODEARGS;
    const WithoutPipeSignal quiet;
    return clnt_call(client, procedure, reinterpret_cast<xdrproc_t>(argument_routine), argument,
                     reinterpret_cast<xdrproc_t>(result_routine), result, time_out);
}

} // namespace

clnt_stat qelserv_setkey_1(qelserv_keyinfo argument, qelserv_status *result, CLIENT *client) {
    return call(client, QELSERV_SETKEY, xdr_qelserv_keyinfo, &argument, xdr_qelserv_status, result);
}

clnt_stat qelserv_listkey_1(qelserv_listinfo argument, qelserv_keylistp *result, CLIENT *client) {
    return call(client, QELSERV_LISTKEY, xdr_qelserv_listinfo, &argument, xdr_qelserv_keylistp,
                result);
}

clnt_stat qelserv_statkey_1(qelserv_statinfo argument, qelserv_keystatp *result, CLIENT *client) {
    return call(client, QELSERV_STATKEY, xdr_qelserv_statinfo, &argument, xdr_qelserv_keystatp,
                result);
}

clnt_stat qelserv_decrypt_1(qelserv_cryptinfo argument, qelserv_cryptdatap *result,
                            CLIENT *client) {
    return call(client, QELSERV_DECRYPT, xdr_qelserv_cryptinfo, &argument, xdr_qelserv_cryptdatap,
                result);
}

clnt_stat qelserv_sign_1(qelserv_cryptinfo argument, qelserv_cryptdatap *result, CLIENT *client) {
    return call(client, QELSERV_SIGN, xdr_qelserv_cryptinfo, &argument, xdr_qelserv_cryptdatap,
                result);
}

clnt_stat qelserv_encrypt_1(qelserv_cryptinfo argument, qelserv_cryptdatap *result,
                            CLIENT *client) {
    return call(client, QELSERV_ENCRYPT, xdr_qelserv_cryptinfo, &argument, xdr_qelserv_cryptdatap,
                result);
}

clnt_stat qelserv_getkeypkg_1(qelserv_keypkginfo argument, qelserv_keypkglistp *result,
                              CLIENT *client) {
    return call(client, QELSERV_GETKEYPKG, xdr_qelserv_keypkginfo, &argument,
                xdr_qelserv_keypkglistp, result);
}
