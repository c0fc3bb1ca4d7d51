// pkcs.h: the schema of everything that the library writes or reads as ASN.1.
#ifndef ASN1_PKCS_H
#define ASN1_PKCS_H

#include <dencoder/oss.h>
#include <dencoder/schema.h>

// The control table. PDUs are numbered by QEL_PDU_... of <qel/qelp.h>.
extern const dencoder::ControlTable pkcs;

// The table's link routine: BER, DER, the constraint checker.
extern "C" void _ossinit_pkcs(OssEnvironment *environment);

#endif
