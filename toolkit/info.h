// info.h: set and get functions of info types that serve more than one algorithm.
//
// A set function fills parameters (empty before) from an info record; a get function makes the
// record and keeps it with the object.
#ifndef TOOLKIT_INFO_H
#define TOOLKIT_INFO_H

#include "objects.h"

#include <cstring>

namespace toolkit {

// No info record.
int set_nothing(Parameters *parameters, const Algorithm &algorithm, POINTER info);
int get_nothing(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type);
// Never published.
int set_unpublished(Parameters *parameters, const Algorithm &algorithm, POINTER info);
int get_unpublished(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type);
// A pointer to 8 bytes.
int set_block(Parameters *parameters, const Algorithm &algorithm, POINTER info);
int get_block(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type);
// An AlgorithmIdentifier.
int set_ber(Parameters *parameters, const Algorithm &algorithm, POINTER info);
int get_ber(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type);
// A text: the algorithm's name, and its parameters behind a comma.
int set_text(Parameters *parameters, const Algorithm &algorithm, POINTER info);
int get_text(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type);

// Keeps a copy of a plain record, whose pointers are the object's own.
template <class Record>
int get_record(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type, const Record &record) {
    void *kept = keep_record(&object->records, type, sizeof record);
    if (kept == nullptr)
        return BE_ALLOC;
    std::memcpy(kept, &record, sizeof record);
    *info = kept;
    return BE_OK;
}

// Algorithms without parameters: NULL is written, NULL or nothing is read.
int read_null_parameters(BerReader *reader, Parameters *parameters);
int write_null_parameters(BerWriter *writer, const Parameters &parameters);

} // namespace toolkit

#endif
