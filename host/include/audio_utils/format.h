/*
 * Host stand-in for the platform's audio_utils/format.h (API 29).
 */

#ifndef ANDROID_AUDIO_FORMAT_H
#define ANDROID_AUDIO_FORMAT_H

#include <stdint.h>
#include <sys/cdefs.h>

#include <system/audio.h>

__BEGIN_DECLS

/* Converts |count| samples from |src_format| to |dst_format|.  Equal formats
 * copy bytes; the pairs the platform supports convert; any other pair is a
 * programming error and aborts with "invalid src format %#x for dst format
 * %#x", as on the platform. */
void memcpy_by_audio_format(void *dst, audio_format_t dst_format,
        const void *src, audio_format_t src_format, size_t count);

__END_DECLS

#endif  // ANDROID_AUDIO_FORMAT_H
