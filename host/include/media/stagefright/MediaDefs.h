/*
 * Host stand-in for the platform's media/stagefright/MediaDefs.h (API 29),
 * which only includes the foundation header.
 */

#ifndef STAGEFRIGHT_MEDIA_DEFS_H_
#define STAGEFRIGHT_MEDIA_DEFS_H_

#include <media/stagefright/foundation/MediaDefs.h>

#endif  // STAGEFRIGHT_MEDIA_DEFS_H_
