/*
 * Host-only control of the in-process property store, for tests and tools.
 * Nothing on a device has these calls; engine code must not use them.
 */

#ifndef HOST_CUTILS_HOST_PROPERTIES_H
#define HOST_CUTILS_HOST_PROPERTIES_H

#ifdef __cplusplus
extern "C" {
#endif

/* Empties the store.  The lazy start-up load counts as done afterwards, so
 * the store stays empty until properties are set or loaded. */
void host_properties_clear(void);

/* Does again what the first use does, with |file_path| in place of
 * $ROTAVOX_PROPERTIES_FILE: empties the store, loads the file (skipped when
 * |file_path| is NULL or empty), then applies $ROTAVOX_PROPERTIES.  Returns
 * 0, or -1 when the file could not be opened (the environment is still
 * applied). */
int host_properties_reload(const char* file_path);

/* Merges the key=value lines of |file_path| into the store, overriding
 * existing keys.  Blank lines and lines starting with '#' are ignored; a
 * malformed line is skipped with a warning naming the file and the line.
 * Returns the number of properties set, or -1 when the file cannot be
 * opened. */
int host_properties_load_file(const char* file_path);

/* Merges entries separated by commas or newlines, "key=value,key=value",
 * in the form of $ROTAVOX_PROPERTIES.  |origin| names the text in log lines.
 * Returns the number of properties set. */
int host_properties_load_string(const char* text, const char* origin);

#ifdef __cplusplus
}
#endif

#endif /* HOST_CUTILS_HOST_PROPERTIES_H */
