#ifndef ORU_EXPORT_H
#define ORU_EXPORT_H

/* Everything in the library is hidden unless marked with ORU_EXPORT. */
#if defined(__GNUC__) || defined(__clang__)
#define ORU_EXPORT __attribute__((visibility("default")))
#else
#define ORU_EXPORT
#endif

#endif /* ORU_EXPORT_H */
