// return_values.h: the token's return values and their texts.
#ifndef CRYPTOKI_RETURN_VALUES_H
#define CRYPTOKI_RETURN_VALUES_H

#include <qel/cryptoki.h>

struct ReturnValue {
    CK_RV value;
    const char *text;
};

// Ascending by value; the last row has value 0 and is no value of its own.
extern const ReturnValue return_values[];

// Writes a line about a value to standard error, and returns what the formatted write returned.
int print_CK_RV(CK_RV value);

#endif
