// dn.h: names in their normalised printable form. Printable names as such are in qel.h and qelp.h.
#ifndef ASN1_DN_H
#define ASN1_DN_H

#include <qel/qelp.h>

// Writes a name as __qel_dn2str does, after a passage through its encoding, which makes the order of
// its assertions and the types of its strings canonical. What encoding, decoding or __qel_dn2str
// returns.
QelStatus normalise_dn(QelContext *context, const QelName *name, int mode, char **string_out);

#endif
