/* A plug-in that serves well unless its path tells it to misbehave, and keeps a list of the calls it got:
 * "Initialize a.x;Load a.x 0;..." with the file names alone. Names beginning with "live" are never files. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kvalo/plugin.h"

static char calls[1 << 16];
static const char* reported; /* what GetErrorMessage gives */
static const char* told;     /* what GetInfoMessage gives, once */

static const char* file_name(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash != NULL ? slash + 1 : path;
}

static double next_time[5]; /* of the live source made last, per parameter */

static int says(const char* path, const char* word) { return strstr(file_name(path), word) != NULL; }

static void note(const char* call, const char* path) {
  const size_t used = strlen(calls);
  snprintf(calls + used, sizeof calls - used, "%s %s;", call, file_name(path));
}

KVALO_PLUGIN_EXPORT const char* get_calls(void);
KVALO_PLUGIN_EXPORT const char* get_calls(void) {
  static char given[sizeof calls];
  memcpy(given, calls, sizeof given);
  calls[0] = '\0';
  return given;
}

uint8_t IsCompatible(const char* path) { return says(path, ".nasty"); }

#ifndef WITHOUT_GetConfigCount
uint32_t GetConfigCount(void) {
  const char* asked = getenv("NASTY_SETTINGS");
  return asked != NULL ? (uint32_t)strtoul(asked, NULL, 10) : 2;
}
#endif
const char* GetConfigKey(uint32_t key) {
  static const char* const keys[] = {"nasty_text", "nasty_number"};
  return key < 2 ? keys[key] : NULL;
}

#ifndef WITHOUT_Initialize
uint8_t Initialize(const char* path, const char* const* values) {
  static char text[256];
  note("Initialize", path);
  memset(next_time, 0, sizeof next_time);
  reported = says(path, "short_error") ? "no" : says(path, "null_error") ? NULL : "the long reason";
  if (says(path, "refuse")) return 7;
  if (says(path, "long_info")) told = "abc";
  if (says(path, "short_info")) told = "ab";
  if (says(path, "latin_info")) told = "caf\xe9";
  if (says(path, "show_settings")) {
    snprintf(text, sizeof text, "settings:%s:%s:", values[0], values[1]);
    told = text;
  }
  return 0;
}
#endif

uint32_t GetParameterCount(const char* path) { return says(path, "flood") ? 4000000000u : 5; }

#ifndef WITHOUT_GetParameterName
const char* GetParameterName(const char* path, uint32_t parameter) {
  static const char* const names[] = {"a.b", "a.c", "d", "fails", "a.b"};
  static char text[1 << 20];
  if (says(path, "null_name") && parameter == 2) return NULL;
  if (says(path, "empty_name") && parameter == 2) return "";
  if (says(path, "odd_name") && parameter == 2) return "caf\xe9.";
  if (says(path, "line_name") && parameter == 2) return "line\nfeed";
  if ((says(path, "endless_name") || says(path, "deep_name")) && parameter == 2) {
    memset(text, 'x', sizeof text - 1);
    if (says(path, "deep_name")) {
      for (size_t i = 1; i < 2000; i += 2) text[i] = '.';
      text[2000] = '\0';
    }
    return text;
  }
  return names[parameter];
}
#endif

#ifndef WITHOUT_Load
uint8_t Load(const char* path, uint32_t parameter, uint64_t* count, double** x, double** y) {
  static double times[8], values[8];
  note("Load", path);
  reported = says(path, "short_error") ? "no" : "the long reason";
  const int live = strchr(path, '/') == NULL;
  if (parameter == 3 && (!live || getenv("NASTY_LIVE_FAILS") != NULL)) return 7;
  for (int i = 0; i < 4; ++i) {
    times[i] = live ? next_time[parameter] + i : i;
    values[i] = 10 * (parameter + 1) + i;
  }
  if (live) next_time[parameter] += 4;
  *count = 4;
  *x = times;
  *y = values;
  if (says(path, "no_samples")) *count = 0, *x = *y = NULL;
  if (says(path, "null_x")) *x = NULL;
  if (says(path, "null_y")) *y = NULL;
  if (says(path, "many")) *count = (uint64_t)1 << 27;
  if (says(path, "countless")) *count = UINT64_MAX;
  if (says(path, "tera")) *count = (uint64_t)1 << 40;
  return 0;
}
#endif

#ifndef WITHOUT_Terminate
uint8_t Terminate(const char* path) {
  note("Terminate", path);
  if (getenv("NASTY_PRINTS") != NULL) {
    printf("Terminate\n");
    fflush(stdout);
  }
  return 0;
}
#endif

#ifndef WITHOUT_GetErrorMessage
const char* GetErrorMessage(void) { return reported; }
#endif
#ifndef WITHOUT_GetInfoMessage
const char* GetInfoMessage(void) {
  const char* text = told;
  told = NULL;
  return text;
}
#endif

#ifndef WITHOUT_Start
uint8_t Start(const char* path) {
  (void)path;
  note("Start", "live");
  reported = "cannot start";
  return getenv("NASTY_START") != NULL;
}
#endif
uint8_t Stop(const char* path) {
  (void)path;
  note("Stop", "live");
  if (getenv("NASTY_PRINTS") != NULL) {
    printf("Stop\n");
    fflush(stdout);
  }
  return 0;
}
