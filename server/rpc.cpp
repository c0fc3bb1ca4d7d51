#include "rpc.h"

#include <cstring>
#include <new>

#include <arpa/inet.h>

namespace {

constexpr uint32_t last_fragment = 0x80000000;

void wipe(const qelserv_bytes &bytes) {
    if (bytes.value != nullptr)
        explicit_bzero(bytes.value, bytes.length);
}

// What a value holds of secrets goes before its memory does.
template <class T> void wipe_value(T &) {}
template <> void wipe_value(qelserv_keyinfo &value) {
    wipe(value.privkey);
}
template <> void wipe_value(qelserv_cryptinfo &value) {
    wipe(value.data);
}
template <> void wipe_value(qelserv_cryptdatap &value) {
    if (value != nullptr)
        wipe(value->data);
}

// A value with what its XDR routine has allocated, or will release.
template <class T> struct XdrValue {
    T value{};
    xdrproc_t routine;

    explicit XdrValue(bool_t (*typed)(XDR *, T *)) : routine(reinterpret_cast<xdrproc_t>(typed)) {}
    XdrValue(const XdrValue &) = delete;
    XdrValue &operator=(const XdrValue &) = delete;
    ~XdrValue() {
        wipe_value(value);
        xdr_free(routine, &value);
    }
};

SecretBytes encode(rpc_msg *reply) {
    const unsigned long size = xdr_sizeof(reinterpret_cast<xdrproc_t>(xdr_replymsg), reply);
    SecretBytes record(sizeof(uint32_t) + size);
    const uint32_t mark = htonl(last_fragment | static_cast<uint32_t>(size));
    std::memcpy(record.data(), &mark, sizeof mark);
    XDR out;
    xdrmem_create(&out, reinterpret_cast<char *>(record.data() + sizeof mark),
                  static_cast<u_int>(size), XDR_ENCODE);
    if (size == 0 || !xdr_replymsg(&out, reply))
        throw std::bad_alloc();
    return record;
}

bool_t xdr_nothing(XDR *, void *) {
    return TRUE;
}

rpc_msg accepted(uint32_t xid, accept_stat status) {
    rpc_msg reply = {};
    reply.rm_xid = xid;
    reply.rm_direction = REPLY;
    reply.rm_reply.rp_stat = MSG_ACCEPTED;
    reply.acpted_rply.ar_verf = _null_auth;
    reply.acpted_rply.ar_stat = status;
    reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(xdr_nothing);
    return reply;
}

SecretBytes refuse(uint32_t xid, accept_stat status) {
    rpc_msg reply = accepted(xid, status);
    reply.acpted_rply.ar_vers = {QELSERV_VERS, QELSERV_VERS};
    if (status == GARBAGE_ARGS || status == PROC_UNAVAIL)
        reply.acpted_rply.ar_results = {nullptr, reinterpret_cast<xdrproc_t>(xdr_nothing)};
    return encode(&reply);
}

// Whether it is a call of another version of ONC RPC, which libtirpc does not tell from garbage.
bool is_of_other_version(std::span<const uint8_t> message, uint32_t *xid_out) {
    uint32_t words[3]; // number, direction, version
    if (message.size() < sizeof words)
        return false;
    std::memcpy(words, message.data(), sizeof words);
    *xid_out = ntohl(words[0]);
    return ntohl(words[1]) == CALL && ntohl(words[2]) != RPC_MSG_VERSION;
}

SecretBytes deny_version(uint32_t xid) {
    rpc_msg reply = {};
    reply.rm_xid = xid;
    reply.rm_direction = REPLY;
    reply.rm_reply.rp_stat = MSG_DENIED;
    reply.rjcted_rply.rj_stat = RPC_MISMATCH;
    reply.rjcted_rply.rj_vers = {RPC_MSG_VERSION, RPC_MSG_VERSION};
    return encode(&reply);
}

// In memory, a stream keeps there how many bytes are left.
bool at_end(const XDR *in) {
    return in->x_handy == 0;
}

using Serve = SecretBytes (*)(Service *, const Caller &, uint32_t xid, XDR *in);

// Decodes the argument, calls the procedure, encodes its result. Bytes behind the argument are garbage.
template <class Argument, class Result, auto procedure>
SecretBytes serve(Service *service, const Caller &caller, uint32_t xid, XDR *in,
                  bool_t (*argument_routine)(XDR *, Argument *),
                  bool_t (*result_routine)(XDR *, Result *)) {
    XdrValue<Argument> argument(argument_routine);
    if (!argument_routine(in, &argument.value) || !at_end(in))
        return refuse(xid, GARBAGE_ARGS);
    XdrValue<Result> result(result_routine);
    result.value = (service->*procedure)(caller, argument.value);
    rpc_msg reply = accepted(xid, SUCCESS);
    reply.acpted_rply.ar_results = {reinterpret_cast<char *>(&result.value), result.routine};
    return encode(&reply);
}

template <auto argument_routine, auto result_routine, auto procedure>
SecretBytes serve_row(Service *service, const Caller &caller, uint32_t xid, XDR *in) {
    return []<class Argument, class Result>(Service *s, const Caller &c, uint32_t x, XDR *i,
                                            bool_t (*a)(XDR *, Argument *),
                                            bool_t (*r)(XDR *, Result *)) {
        return serve<Argument, Result, procedure>(s, c, x, i, a, r);
    }(service, caller, xid, in, argument_routine, result_routine);
}

SecretBytes serve_nothing(Service *, const Caller &, uint32_t xid, XDR *) {
    rpc_msg reply = accepted(xid, SUCCESS);
    return encode(&reply);
}

// By procedure number.
constexpr Serve procedures[] = {
    serve_nothing,
    serve_row<xdr_qelserv_keyinfo, xdr_qelserv_status, &Service::set_key>,
    serve_row<xdr_qelserv_listinfo, xdr_qelserv_keylistp, &Service::list_keys>,
    serve_row<xdr_qelserv_statinfo, xdr_qelserv_keystatp, &Service::stat_keys>,
    serve_row<xdr_qelserv_cryptinfo, xdr_qelserv_cryptdatap, &Service::decrypt>,
    serve_row<xdr_qelserv_cryptinfo, xdr_qelserv_cryptdatap, &Service::sign>,
    serve_row<xdr_qelserv_cryptinfo, xdr_qelserv_cryptdatap, &Service::encrypt>,
    serve_row<xdr_qelserv_keypkginfo, xdr_qelserv_keypkglistp, &Service::get_packages>,
};

} // namespace

SecretBytes answer_call(Service *service, const Caller &caller, std::span<uint8_t> message) {
    uint32_t xid = 0;
    if (is_of_other_version(message, &xid))
        return deny_version(xid);
    XDR in;
    xdrmem_create(&in, reinterpret_cast<char *>(message.data()), static_cast<u_int>(message.size()),
                  XDR_DECODE);
    // Credentials are looked at by nobody: the kernel says who calls.
    char credentials[MAX_AUTH_BYTES];
    char verifier[MAX_AUTH_BYTES];
    rpc_msg call = {};
    call.rm_call.cb_cred.oa_base = credentials;
    call.rm_call.cb_verf.oa_base = verifier;
    if (!xdr_callmsg(&in, &call))
        return {};
    if (call.rm_call.cb_prog != QELSERV_PROG)
        return refuse(call.rm_xid, PROG_UNAVAIL);
    if (call.rm_call.cb_vers != QELSERV_VERS)
        return refuse(call.rm_xid, PROG_MISMATCH);
    if (call.rm_call.cb_proc >= std::size(procedures))
        return refuse(call.rm_xid, PROC_UNAVAIL);
    return procedures[call.rm_call.cb_proc](service, caller, call.rm_xid, &in);
}
