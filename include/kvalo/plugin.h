/* What a native plug-in exports: a shared library that gives kvalo the recordings of one more format, or the
 * samples of a live source. C and C++ alike; docs/plugins.md is the guide, examples/plugins has two complete
 * ones.
 *
 * Include this header, define the functions, compile into a shared library:
 *
 *     cc -shared -fPIC -I include -o myformat.so myformat.c
 *
 * What holds for all of them:
 *
 * - Texts are zero-terminated UTF-8 (other bytes are taken as Latin-1). Those that a function is given are
 *   the caller's and valid during the call. Those that it returns stay the plug-in's, unchanged until the
 *   next call into the plug-in.
 * - `path` is the source as the script named it. For a live source it is a text of date and time that no
 *   other source of this process has. One plug-in serves any number of paths at once.
 * - A `code` is 0 for success. After any other, GetErrorMessage is asked for the reason.
 * - Calls into one plug-in come one after the other, never two at once, but from changing threads. Threads of
 *   the plug-in's own must have ended for a path when Terminate (for a live source: Stop) returns.
 * - The library stays loaded until the process ends. No function may end the process, unwind through the
 *   caller, or wait for the Python interpreter.
 *
 * Required are all functions but IsCompatible; Start and Stop only in a plug-in of a live source.
 */
#ifndef KVALO_PLUGIN_H
#define KVALO_PLUGIN_H

#include <stdint.h>

#if defined(_WIN32)
#define KVALO_PLUGIN_EXPORT __declspec(dllexport)
#else
#define KVALO_PLUGIN_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Whether the plug-in reads the file: 1 for yes. Optional: with it, a plug-in in the folder plugins/ serves
 * its files without being named. Asked about every file that a script opens, before anything else is called,
 * so it should look at the name or at a few bytes and be quick. */
KVALO_PLUGIN_EXPORT uint8_t IsCompatible(const char* path);

/* The settings that the plug-in wants: how many (4096 at most), and their keys in the configuration's group
 * "general", where a script puts them with kvalo.set_config("text", "key"). */
KVALO_PLUGIN_EXPORT uint32_t GetConfigCount(void);
KVALO_PLUGIN_EXPORT const char* GetConfigKey(uint32_t key);

/* The first reader of this path begins. `values` has the text of every setting in the order of the keys; an
 * empty text for one that is not set, or is not a text. Returns a code. */
KVALO_PLUGIN_EXPORT uint8_t Initialize(const char* path, const char* const* values);

/* The variables: how many (1,000,000 at most), and their names. A "." in a name separates levels: engine.rpm
 * and engine.temp become the group engine with two members. No level is longer than 4096 bytes or deeper than
 * 64. A name that comes twice stands for the later parameter. */
KVALO_PLUGIN_EXPORT uint32_t GetParameterCount(const char* path);
KVALO_PLUGIN_EXPORT const char* GetParameterName(const char* path, uint32_t parameter);

/* The samples of one variable: sets *count and points *x at that many times (seconds) and *y at as many
 * values. Times should increase; nothing checks it. The buffers stay the plug-in's and must be unchanged
 * until the next call into the plug-in; they are copied and never freed. With *count 0 the pointers may be
 * null.
 *
 * A file: the whole variable, again at every call. A live source: the samples of this variable that were
 * received since its last Load; each sample is handed over once. Returns a code. */
KVALO_PLUGIN_EXPORT uint8_t Load(const char* path, uint32_t parameter, uint64_t* count, double** x,
                                 double** y);

/* The last reader of this path is gone; also after an Initialize that failed. The result is not looked at. */
KVALO_PLUGIN_EXPORT uint8_t Terminate(const char* path);

/* Why the last call returned a code other than 0; null or fewer than three characters for a general text. */
KVALO_PLUGIN_EXPORT const char* GetErrorMessage(void);

/* Something to tell the person at the screen, asked after Initialize, Load, Start and Stop succeeded; null or
 * fewer than three characters for nothing. Shown each time it is returned. */
KVALO_PLUGIN_EXPORT const char* GetInfoMessage(void);

/* A live source begins or ceases to receive, as the script says. Stop also comes before Terminate when the
 * source is still running then. Returns a code. */
KVALO_PLUGIN_EXPORT uint8_t Start(const char* path);
KVALO_PLUGIN_EXPORT uint8_t Stop(const char* path);

#ifdef __cplusplus
}
#endif

#endif
