/* A plug-in that reads files: recordings of a small made-up binary format, ".trk".
 *
 *     bytes  content (all numbers little-endian)
 *     4      "TRK1"
 *     4      number of channels, unsigned
 *     4      number of rows, unsigned
 *     8      rows per second, double
 *     then for every channel: 32 bytes of name, padded with zeros
 *     then for every channel: its rows, each a 4-byte float
 *
 * Build it:  cc -shared -fPIC -O2 -I include -o tracks.so examples/plugins/tracks.c
 * Use it:    kvalo.Container(path="flight.trk", plugin="./tracks.so"), or put it into the folder plugins/
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kvalo/plugin.h"

enum { header_size = 20, name_size = 32 };

/* What is kept of a file between Initialize and Terminate. */
struct recording {
  char* path;
  uint32_t channels;
  uint32_t rows;
  double rate;
  char* names; /* channels times name_size + 1 bytes */
  struct recording* next;
};

static struct recording* recordings;
static double *times, *values; /* of the last Load */
static char error[256];

static uint8_t fail(const char* reason, const char* path) {
  snprintf(error, sizeof error, "%s: %.200s", reason, path);
  return 1;
}

/* Numbers from bytes, whatever the byte order of this machine. */
static uint64_t unsigned_at(const unsigned char* bytes, int size) {
  uint64_t number = 0;
  for (int i = size - 1; i >= 0; --i) number = number << 8 | bytes[i];
  return number;
}

static double double_at(const unsigned char* bytes) {
  const uint64_t bits = unsigned_at(bytes, 8);
  double number;
  memcpy(&number, &bits, sizeof number);
  return number;
}

static float float_at(const unsigned char* bytes) {
  const uint32_t bits = (uint32_t)unsigned_at(bytes, 4);
  float number;
  memcpy(&number, &bits, sizeof number);
  return number;
}

static struct recording** find(const char* path) {
  struct recording** at = &recordings;
  while (*at != NULL && strcmp((*at)->path, path) != 0) at = &(*at)->next;
  return at;
}

static void release(struct recording* recording) {
  free(recording->path);
  free(recording->names);
  free(recording);
}

/* Reads header and names; never believes a number in the file before the file's size confirms it. */
static uint8_t read_header(FILE* file, struct recording* recording) {
  unsigned char header[header_size];
  if (fread(header, 1, header_size, file) != header_size || memcmp(header, "TRK1", 4) != 0) {
    return fail("This is not a track file", recording->path);
  }
  recording->channels = (uint32_t)unsigned_at(header + 4, 4);
  recording->rows = (uint32_t)unsigned_at(header + 8, 4);
  recording->rate = double_at(header + 12);
  if (!(recording->rate > 0)) return fail("The number of rows per second is not positive", recording->path);

  if (fseek(file, 0, SEEK_END) != 0) return fail("Cannot be read", recording->path);
  const uint64_t needed = header_size + (uint64_t)recording->channels * name_size +
                          (uint64_t)recording->channels * recording->rows * 4;
  if ((uint64_t)ftell(file) < needed)
    return fail("The file is shorter than its header says", recording->path);

  recording->names = calloc((size_t)recording->channels + 1, name_size + 1);
  if (recording->names == NULL) return fail("Not enough memory", recording->path);
  fseek(file, header_size, SEEK_SET);
  for (uint32_t i = 0; i < recording->channels; ++i) {
    if (fread(recording->names + (size_t)i * (name_size + 1), 1, name_size, file) != name_size) {
      return fail("Cannot be read", recording->path);
    }
  }
  return 0;
}

uint8_t IsCompatible(const char* path) {
  const size_t length = strlen(path);
  return length > 4 && strcmp(path + length - 4, ".trk") == 0;
}

uint32_t GetConfigCount(void) { return 0; }
const char* GetConfigKey(uint32_t key) {
  (void)key;
  return NULL;
}

uint8_t Initialize(const char* path, const char* const* values_of_settings) {
  (void)values_of_settings;
  FILE* file = fopen(path, "rb");
  if (file == NULL) return fail("Cannot be opened", path);
  struct recording* recording = calloc(1, sizeof *recording);
  const size_t length = strlen(path) + 1;
  if (recording != NULL) recording->path = malloc(length);
  if (recording == NULL || recording->path == NULL) {
    free(recording);
    fclose(file);
    return fail("Not enough memory", path);
  }
  memcpy(recording->path, path, length);
  const uint8_t code = read_header(file, recording);
  fclose(file);
  if (code != 0) {
    release(recording);
    return code;
  }
  recording->next = recordings;
  recordings = recording;
  return 0;
}

uint32_t GetParameterCount(const char* path) {
  const struct recording* recording = *find(path);
  return recording != NULL ? recording->channels : 0;
}

const char* GetParameterName(const char* path, uint32_t parameter) {
  const struct recording* recording = *find(path);
  if (recording == NULL || parameter >= recording->channels) return NULL;
  return recording->names + (size_t)parameter * (name_size + 1);
}

uint8_t Load(const char* path, uint32_t parameter, uint64_t* count, double** x, double** y) {
  const struct recording* recording = *find(path);
  if (recording == NULL || parameter >= recording->channels) return fail("There is no such channel in", path);
  const size_t rows = recording->rows;
  free(times);
  free(values);
  times = malloc((rows + 1) * sizeof *times);
  values = malloc((rows + 1) * sizeof *values);
  FILE* file = fopen(path, "rb");
  uint8_t code = 0;
  if (times == NULL || values == NULL || file == NULL) {
    code = fail("Cannot be read", path);
  } else {
    const uint64_t column =
        header_size + (uint64_t)recording->channels * name_size + (uint64_t)parameter * rows * 4;
    fseek(file, (long)column, SEEK_SET);
    for (size_t i = 0; i < rows && code == 0; ++i) {
      unsigned char bytes[4];
      if (fread(bytes, 1, 4, file) != 4) code = fail("The file has become shorter", path);
      times[i] = (double)i / recording->rate;
      values[i] = float_at(bytes);
    }
  }
  if (file != NULL) fclose(file);
  *count = rows;
  *x = times;
  *y = values;
  return code;
}

uint8_t Terminate(const char* path) {
  struct recording** at = find(path);
  struct recording* recording = *at;
  if (recording == NULL) return 0; /* Initialize failed */
  *at = recording->next;
  release(recording);
  return 0;
}

const char* GetErrorMessage(void) { return error; }
const char* GetInfoMessage(void) { return NULL; }
