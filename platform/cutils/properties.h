/* System properties: short texts under short names. */
#pragma once

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value (or `default_value`, which may be null, when there is none) with its end mark into `value`, which
 * has room for PROPERTY_VALUE_MAX bytes. Returns the length of the text. */
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
