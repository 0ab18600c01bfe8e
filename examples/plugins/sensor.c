/* A plug-in of a live source: a simulated sensor, sampled by a thread of its own.
 *
 * Settings (texts): "sensor_rate" samples per second (100), "sensor_channels" how many (3). The channels are
 * called wave.000, wave.001, ...; channel c is a sine of 0.1 * (c + 1) Hz. Times begin at 0 with Start.
 *
 * The sampling thread writes into a ring that holds the last minute; each channel remembers how far it has
 * been handed over, so that Load gives every sample once. A script that waits for longer than a minute loses
 * the oldest ones, and is told how many.
 *
 * Build it:  cc -shared -fPIC -O2 -I include -o sensor.so examples/plugins/sensor.c -lpthread -lm
 * Use it:    kvalo.Container(plugin="./sensor.so", realtime=True)
 */
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kvalo/plugin.h"

enum { seconds_kept = 60, most_channels = 1000, most_rate = 100000 };

struct source {
  char* path;
  double rate;
  uint32_t channels;
  pthread_t thread;
  int running;
  int stopping;
  pthread_mutex_t lock;  /* guards all that follows, and `stopping` */
  uint64_t written;      /* samples of each channel since Start */
  uint64_t ring_size;    /* in samples of one channel */
  double* ring;          /* ring_size rows of one value per channel */
  uint64_t* handed_over; /* per channel: samples that Load has given */
  uint64_t lost;
  struct source* next;
};

static struct source* sources;
static double *times, *values; /* of the last Load, of any source */
static size_t room;
static char error[128], info[128], name[16];

static uint8_t fail(const char* reason) {
  snprintf(error, sizeof error, "%s", reason);
  return 1;
}

static struct source** find(const char* path) {
  struct source** at = &sources;
  while (*at != NULL && strcmp((*at)->path, path) != 0) at = &(*at)->next;
  return at;
}

static double seconds_now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static void* sample(void* argument) {
  const double pi = 3.14159265358979323846;
  struct source* source = argument;
  const double begin = seconds_now();
  const struct timespec pause = {.tv_sec = 0, .tv_nsec = 2000000};
  for (;;) {
    pthread_mutex_lock(&source->lock);
    if (source->stopping) {
      pthread_mutex_unlock(&source->lock);
      return NULL;
    }
    const uint64_t due = (uint64_t)((seconds_now() - begin) * source->rate);
    for (; source->written < due; ++source->written) {
      const double t = (double)source->written / source->rate;
      double* row = source->ring + source->written % source->ring_size * source->channels;
      for (uint32_t c = 0; c < source->channels; ++c) row[c] = sin(2 * pi * 0.1 * (c + 1) * t);
    }
    pthread_mutex_unlock(&source->lock);
    nanosleep(&pause, NULL);
  }
}

static void stop(struct source* source) {
  if (!source->running) return;
  pthread_mutex_lock(&source->lock);
  source->stopping = 1;
  pthread_mutex_unlock(&source->lock);
  pthread_join(source->thread, NULL);
  source->running = 0;
}

static void release(struct source* source) {
  pthread_mutex_destroy(&source->lock);
  free(source->path);
  free(source->ring);
  free(source->handed_over);
  free(source);
}

uint32_t GetConfigCount(void) { return 2; }
const char* GetConfigKey(uint32_t key) { return key == 0 ? "sensor_rate" : "sensor_channels"; }

uint8_t Initialize(const char* path, const char* const* settings) {
  const double rate = settings[0][0] != '\0' ? atof(settings[0]) : 100;
  const int channels = settings[1][0] != '\0' ? atoi(settings[1]) : 3;
  if (!(rate >= 1 && rate <= most_rate)) return fail("sensor_rate must be from 1 to 100000 samples a second");
  if (channels < 1 || channels > most_channels) return fail("sensor_channels must be from 1 to 1000");
  struct source* source = calloc(1, sizeof *source);
  if (source == NULL) return fail("Not enough memory");
  pthread_mutex_init(&source->lock, NULL);
  source->rate = rate;
  source->channels = (uint32_t)channels;
  source->ring_size = (uint64_t)ceil(rate * seconds_kept);
  source->ring = calloc(source->ring_size * source->channels, sizeof *source->ring);
  source->handed_over = calloc(source->channels, sizeof *source->handed_over);
  source->path = malloc(strlen(path) + 1);
  if (source->ring == NULL || source->handed_over == NULL || source->path == NULL) {
    release(source);
    return fail("Not enough memory");
  }
  strcpy(source->path, path);
  source->next = sources;
  sources = source;
  return 0;
}

uint32_t GetParameterCount(const char* path) {
  const struct source* source = *find(path);
  return source != NULL ? source->channels : 0;
}

const char* GetParameterName(const char* path, uint32_t parameter) {
  (void)path;
  snprintf(name, sizeof name, "wave.%03u", (unsigned)parameter);
  return name;
}

uint8_t Start(const char* path) {
  struct source* source = *find(path);
  if (source == NULL) return fail("The sensor is not initialised");
  if (source->running) return fail("The sensor is running already");
  source->written = 0;
  source->lost = 0;
  source->stopping = 0;
  memset(source->handed_over, 0, source->channels * sizeof *source->handed_over);
  if (pthread_create(&source->thread, NULL, sample, source) != 0)
    return fail("The sensor's thread did not start");
  source->running = 1;
  return 0;
}

uint8_t Stop(const char* path) {
  struct source* source = *find(path);
  if (source == NULL || !source->running) return fail("The sensor is not running");
  stop(source);
  return 0;
}

uint8_t Load(const char* path, uint32_t parameter, uint64_t* count, double** x, double** y) {
  struct source* source = *find(path);
  if (source == NULL || parameter >= source->channels) return fail("There is no such channel");
  pthread_mutex_lock(&source->lock);
  const uint64_t end = source->written;
  uint64_t first = source->handed_over[parameter];
  if (end - first > source->ring_size) {
    source->lost += end - first - source->ring_size;
    first = end - source->ring_size;
    snprintf(info, sizeof info, "The sensor was read too late: %llu samples are lost",
             (unsigned long long)source->lost);
  }
  const size_t n = (size_t)(end - first);
  if (n > room) {
    free(times);
    free(values);
    times = malloc(2 * n * sizeof *times);
    values = malloc(2 * n * sizeof *values);
    room = times != NULL && values != NULL ? 2 * n : 0;
  }
  const int fits = n <= room;
  for (size_t i = 0; fits && i < n; ++i) {
    times[i] = (double)(first + i) / source->rate;
    values[i] = source->ring[(first + i) % source->ring_size * source->channels + parameter];
  }
  if (fits) source->handed_over[parameter] = end;
  pthread_mutex_unlock(&source->lock);
  if (!fits) return fail("Not enough memory");
  *count = n;
  *x = times;
  *y = values;
  return 0;
}

uint8_t Terminate(const char* path) {
  struct source** at = find(path);
  struct source* source = *at;
  if (source == NULL) return 0;
  *at = source->next;
  stop(source);
  release(source);
  return 0;
}

const char* GetErrorMessage(void) { return error; }

/* Each message is told once. */
const char* GetInfoMessage(void) {
  static char told[sizeof info];
  memcpy(told, info, sizeof told);
  info[0] = '\0';
  return told;
}
