/*
 * System properties for a host process.
 *
 * On a device these calls reach the property service; on the host they read
 * and write an in-process store that is filled, once and lazily, from the
 * key=value file named by $ROTAVOX_PROPERTIES_FILE and then from
 * $ROTAVOX_PROPERTIES (entries separated by commas or newlines; the
 * environment wins over the file).  The signatures and the value semantics
 * are the platform's.
 */

#ifndef __CUTILS_PROPERTIES_H
#define __CUTILS_PROPERTIES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX   32
#define PROPERTY_VALUE_MAX 92

/* Copies the value of |key| into |value|, which must hold PROPERTY_VALUE_MAX
 * bytes; the copy is truncated to PROPERTY_VALUE_MAX - 1 characters and always
 * NUL-terminated.  When the property is absent or empty, |default_value| is
 * copied instead (or "" when it is NULL).  Returns the length of the string
 * copied, without the terminating NUL. */
int property_get(const char* key, char* value, const char* default_value);

/* "1", "y", "yes", "on", "true" read as 1; "0", "n", "no", "off", "false" as
 * 0; anything else (or no property) gives |default_value|. */
int8_t property_get_bool(const char* key, int8_t default_value);

/* Decimal, 0x-hex or 0-octal integer with an optional sign; an absent,
 * empty, unparsable or out-of-range value gives |default_value|. */
int64_t property_get_int64(const char* key, int64_t default_value);
int32_t property_get_int32(const char* key, int32_t default_value);

/* Returns 0 on success, -1 when |key| is NULL, empty or contains '=', a
 * space or a control character, or when |value| is PROPERTY_VALUE_MAX
 * characters or longer.  A NULL |value| stores "". */
int property_set(const char* key, const char* value);

/* Calls |propfn| once for every property in the store. */
int property_list(void (*propfn)(const char* key, const char* value, void* cookie),
                  void* cookie);

#ifdef __cplusplus
}
#endif

#endif /* __CUTILS_PROPERTIES_H */
