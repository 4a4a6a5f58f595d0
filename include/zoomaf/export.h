/* Export marker of libzoomaf.so: the library is built with hidden visibility, so only
   declarations marked ZOOMAF_API are visible to the camera application. */
#ifndef ZOOMAF_EXPORT_H
#define ZOOMAF_EXPORT_H

#define ZOOMAF_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define ZOOMAF_EXTERN_C_BEGIN extern "C" {
#define ZOOMAF_EXTERN_C_END }
#else
#define ZOOMAF_EXTERN_C_BEGIN
#define ZOOMAF_EXTERN_C_END
#endif

#endif
