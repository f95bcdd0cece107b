/* Export and linkage macros shared by every public TqKernel header. */
#ifndef TQKERNEL_EXPORT_H
#define TQKERNEL_EXPORT_H

#if defined(_WIN32)
#  if defined(TQKERNEL_BUILDING)
#    define TQ_API __declspec(dllexport)
#  else
#    define TQ_API __declspec(dllimport)
#  endif
#else
#  define TQ_API __attribute__((visibility("default")))
#endif

#if defined(_MSC_VER)
#  define TQ_NORETURN __declspec(noreturn)
#  define TQ_PRINTF(fmt, args)
#else
#  define TQ_NORETURN __attribute__((noreturn))
#  define TQ_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#endif

#if defined(__cplusplus)
#  define TQ_BEGIN_DECLS extern "C" {
#  define TQ_END_DECLS }
#else
#  define TQ_BEGIN_DECLS
#  define TQ_END_DECLS
#endif

#endif
