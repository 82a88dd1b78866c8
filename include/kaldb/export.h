/* Visibility of the exported operations. */
#ifndef KALDB_EXPORT_H
#define KALDB_EXPORT_H

#if defined(_WIN32)
#if defined(KALDB_BUILDING)
#define KALDB_API __declspec(dllexport)
#elif defined(KALDB_STATIC)
#define KALDB_API
#else
#define KALDB_API __declspec(dllimport)
#endif
#else
#define KALDB_API __attribute__((visibility("default")))
#endif

#endif
