#include <qel/qelserv.h>

#include <cstdlib>

namespace {

bool_t xdr_text(XDR *xdrs, char **text) {
    return xdr_string(xdrs, text, QELSERV_MAX_STRING);
}

bool_t xdr_byte_array(XDR *xdrs, qelserv_bytes *bytes, uint32_t bound) {
    return xdr_array(xdrs, reinterpret_cast<char **>(&bytes->value), &bytes->length, bound,
                     sizeof *bytes->value, reinterpret_cast<xdrproc_t>(xdr_u_char));
}

// The fields of an element; the place of the next is left to xdr_chain.
bool_t xdr_fields(XDR *xdrs, uid_list *value) {
    return xdr_int32_t(xdrs, &value->uid);
}

bool_t xdr_fields(XDR *xdrs, qelserv_keylist *value) {
    return xdr_qelserv_status(xdrs, &value->status) && xdr_text(xdrs, &value->keyid) &&
           xdr_int32_t(xdrs, &value->uid) && xdr_text(xdrs, &value->hostaddr);
}

bool_t xdr_fields(XDR *xdrs, qelserv_keystat *value) {
    return xdr_qelserv_status(xdrs, &value->status) && xdr_text(xdrs, &value->keyid) &&
           xdr_text(xdrs, &value->hostaddr) && xdr_int32_t(xdrs, &value->flags) &&
           xdr_int32_t(xdrs, &value->usage) && xdr_uint32_t(xdrs, &value->stamp);
}

bool_t xdr_fields(XDR *xdrs, qelserv_keypkglist *value) {
    return xdr_qelserv_status(xdrs, &value->status) &&
           xdr_byte_array(xdrs, &value->keypkg, QELSERV_MAX_KEYPKG);
}

// A list, in a loop: the length of a list that is decoded is the peer's choice, and no stack may
// depend on it.
template <class Node> bool_t xdr_chain(XDR *xdrs, Node **place) {
    for (;;) {
        Node *const node = *place;
        bool_t more = node != nullptr;
        if (xdrs->x_op != XDR_FREE && !xdr_bool(xdrs, &more))
            return FALSE;
        if (!more) {
            *place = nullptr;
            return TRUE;
        }
        if (node == nullptr) // decoding
            *place = static_cast<Node *>(std::calloc(1, sizeof(Node)));
        if (*place == nullptr || !xdr_fields(xdrs, *place))
            return FALSE;
        if (xdrs->x_op != XDR_FREE) {
            place = &(*place)->next;
            continue;
        }
        *place = node->next;
        std::free(node);
    }
}

template <class Node> bool_t xdr_list(XDR *xdrs, Node *value) {
    return xdr_fields(xdrs, value) && xdr_chain(xdrs, &value->next);
}

} // namespace

bool_t xdr_qelserv_status(XDR *xdrs, qelserv_status *value) {
    return xdr_int32_t(xdrs, value);
}

bool_t xdr_uid_list(XDR *xdrs, uid_list *value) {
    return xdr_list(xdrs, value);
}

bool_t xdr_qelserv_keyinfo(XDR *xdrs, qelserv_keyinfo *value) {
    return xdr_text(xdrs, &value->keyid) && xdr_chain(xdrs, &value->uids) &&
           xdr_text(xdrs, &value->hostaddr) && xdr_int32_t(xdrs, &value->flags) &&
           xdr_int32_t(xdrs, &value->usage) &&
           xdr_byte_array(xdrs, &value->privkey, QELSERV_MAX_PRIVKEY) &&
           xdr_byte_array(xdrs, &value->cert, QELSERV_MAX_CERT) &&
           xdr_byte_array(xdrs, &value->keypkg, QELSERV_MAX_KEYPKG);
}

bool_t xdr_qelserv_listinfo(XDR *xdrs, qelserv_listinfo *value) {
    return xdr_int32_t(xdrs, &value->uid) && xdr_int32_t(xdrs, &value->flags);
}

bool_t xdr_qelserv_keylist(XDR *xdrs, qelserv_keylist *value) {
    return xdr_list(xdrs, value);
}

bool_t xdr_qelserv_keylistp(XDR *xdrs, qelserv_keylistp *value) {
    return xdr_chain(xdrs, value);
}

bool_t xdr_qelserv_statinfo(XDR *xdrs, qelserv_statinfo *value) {
    return xdr_int32_t(xdrs, &value->uid) && xdr_text(xdrs, &value->keyid) &&
           xdr_text(xdrs, &value->hostaddr) && xdr_int32_t(xdrs, &value->flags);
}

bool_t xdr_qelserv_keystat(XDR *xdrs, qelserv_keystat *value) {
    return xdr_list(xdrs, value);
}

bool_t xdr_qelserv_keystatp(XDR *xdrs, qelserv_keystatp *value) {
    return xdr_chain(xdrs, value);
}

bool_t xdr_qelserv_cryptinfo(XDR *xdrs, qelserv_cryptinfo *value) {
    return xdr_qelserv_status(xdrs, &value->status) && xdr_int32_t(xdrs, &value->flags) &&
           xdr_int32_t(xdrs, &value->usage) && xdr_text(xdrs, &value->keyid) &&
           xdr_text(xdrs, &value->hostaddr) &&
           xdr_byte_array(xdrs, &value->algid, QELSERV_MAX_ALGID) &&
           xdr_byte_array(xdrs, &value->data, QELSERV_MAX_DATA);
}

bool_t xdr_qelserv_cryptdata(XDR *xdrs, qelserv_cryptdata *value) {
    return xdr_qelserv_status(xdrs, &value->status) &&
           xdr_byte_array(xdrs, &value->data, QELSERV_MAX_DATA);
}

bool_t xdr_qelserv_cryptdatap(XDR *xdrs, qelserv_cryptdatap *value) {
    return xdr_pointer(xdrs, reinterpret_cast<char **>(value), sizeof **value,
                       reinterpret_cast<xdrproc_t>(xdr_qelserv_cryptdata));
}

bool_t xdr_qelserv_keypkginfo(XDR *xdrs, qelserv_keypkginfo *value) {
    return xdr_text(xdrs, &value->keyid) && xdr_text(xdrs, &value->hostaddr);
}

bool_t xdr_qelserv_keypkglist(XDR *xdrs, qelserv_keypkglist *value) {
    return xdr_list(xdrs, value);
}

bool_t xdr_qelserv_keypkglistp(XDR *xdrs, qelserv_keypkglistp *value) {
    return xdr_chain(xdrs, value);
}
