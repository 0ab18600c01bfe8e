// What the messages of charts, pages and annotations carry, and the tables of all messages and fields.
//
// With host.h this is all that a host needs: `message_table` names every message with its id and record,
// `field_table` every field with its place, and both are compared with the structures when this is compiled.
// docs/host-messages.md shows the same tables.
//
// Texts are UTF-8 and end at their first zero byte; a text that fills its field has none. A record is a
// snapshot: it shares the samples of its series, whoever writes to those afterwards writes to a copy, and the
// host may keep it and read it on any thread.
//
// Several series on one chart come as several messages with the chart's id. The same series sent to the
// same chart again replaces its curve: that is how live data moves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "kvalo/host.h"
#include "kvalo/shared_vector.h"

// Ask for a chart, or add a series to one.
struct dto_chart_t {
  uint64_t id = 0;
  int32_t param = -1;
  int32_t param2 = -1;
  int32_t width = -1;
  int32_t unused = -1;
  int32_t red = -1;
  int32_t green = -1;
  int32_t blue = -1;
  int32_t unused2 = -1;
  double vmin = 1e100;
  double vmax = 1e100;
  double unused3 = 1e100;
  double unused4 = 1e100;
  uint64_t side = 0;
  uint64_t flags = 0;
  int32_t style = 0;
  std::string full_name;
  std::string name;
  uint64_t series_id = 0;
  mirn3::shared_vector<double> x;
  mirn3::shared_vector<double> y;
  mirn3::shared_vector<double> z;
};

// Limits, ticks and the title of the x axis. -1e80 leaves a value unchanged.
struct dto_chart_set_chart_t {
  uint64_t id = 0;
  double lmax = -1e80;
  double lmin = -1e80;
  double rmax = -1e80;
  double rmin = -1e80;
  double ltick = -1e80;
  double rtick = -1e80;
  char fit = '0';
  char xlabel[64] = {};
};

// Write a chart to a file.
struct dto_chart_save_t {
  uint64_t id = 0;
  char path[1024] = {};
  char size[64] = {};
};

// An annotation. Which fields count depends on the message.
struct dto_obj2d_t {
  uint64_t chart = 0;
  double x = 0.0;
  double y = 0.0;
  double xcenter = 0.0;
  double ycenter = 0.0;
  double diameter = 0.0;
  double height = 0.0;
  double width = 0.0;
  int32_t red = -1;
  int32_t green = -1;
  int32_t blue = -1;
  int32_t visible = 1;
  int32_t full = 0;
  char text[512] = {};
};

// Create or remove a page.
struct dto_page_t {
  uint64_t id = 0;
  char name[512] = {};
};

// Arrange a page.
struct dto_page_set_page_t {
  uint64_t id = 0;
  int32_t cols = -1;
};

namespace mirn3::ilc {

// dto_chart_t::side
enum class side_t : uint64_t { left = 0, right = 1 };

// dto_chart_t::style
enum class style_t : int32_t { line = 0, boolean = 1, dots = 2, bar = 3, outline = 4 };

// ---- every message ----

struct message_t {
  const char* name;
  uint32_t id;
  const char* record;
  const char* sender;  // the script functions that send it, with what is special
};

// A row of the table; does not compile when the id is not the name's hash.
consteval message_t message(const char* name, uint32_t id, const char* record, const char* sender) {
  if (name_hash(name) != id) throw "the id is not the hash of the name";
  return {name, id, record, sender};
}

inline constexpr message_t message_table[] = {
    message("app_error", 0xB263C3E3u, "dto_error_t", "a Container that could not be made"),
    message("app_info", 0x6A3AF575u, "dto_misc_t", "`set_config`, groups \"window\" and \"theme\""),
    message("app_exit", 0x6A40E99Bu, "dto_exit_t", "`exit`"),
    message("app_selfie", 0xD64A1E0Bu, "dto_misc_t", "`selfie`"),
    message("misc_set", 0xE4DDA76Cu, "dto_misc_t", "`set`"),
    message("misc_reset", 0x92F5119Bu, "dto_misc_t", "`reset`"),
    message("misc_close", 0x91BF3C78u, "dto_misc_t", "`close`"),
    message("misc_bookmark", 0x84577AF2u, "dto_misc_t", "`bookmark`"),
    message("chart_save", 0x4DED79D7u, "dto_chart_save_t", "`save`"),
    message("chart_set", 0x406C0AF4u, "dto_chart_set_chart_t", "`set_chart`"),
    message("chart1d_synoptic", 0x7F14D026u, "dto_chart_t", "`synoptic`: one object of a synoptic chart"),
    message("chart2d_bode", 0x28A371ECu, "dto_chart_t", "`bode`: first series the input, second the output"),
    message("chart2d_bool", 0x28A370CEu, "dto_chart_t", "`boolplot`"),
    message("chart2d_cross", 0x3CFF593Eu, "dto_chart_t",
            "`crossplot`: first series on the x axis, every other one against it"),
    message("chart2d_fft", 0x2FC6F294u, "dto_chart_t", "`fft`"),
    message("chart2d_heatmap", 0x5490A9C4u, "dto_chart_t", "`heatmap`: first series x, second y"),
    message("chart2d_hist", 0x28A44086u, "dto_chart_t", "`hist`"),
    message("chart2d_line", 0x28A6716Eu, "dto_chart_t", "`plot`"),
    message("chart2d_spectro", 0x0C8C01ACu, "dto_chart_t", "`spectrogram`"),
    message("chart2d_xcorr", 0x3E550F34u, "dto_chart_t", "`xcorrplot`: the two series of the chart"),
    message("chart3d_line", 0x70F7756Fu, "dto_chart_t", "`plot3d`: three series are x, y and z of a line"),
    message("chart3d_mesh", 0x70F80332u, "dto_chart_t", "`mesh`"),
    message("obj2d_circle", 0x98F88B79u, "dto_obj2d_t", "`circle`"),
    message("obj2d_datatip", 0x7EAB3876u, "dto_obj2d_t", "`datatip`: `text` is the series' name"),
    message("obj2d_flag", 0x70FBF7A7u, "dto_obj2d_t", "`flag`: one of `x` and `y` is NaN"),
    message("obj2d_mark", 0x70FB82BEu, "dto_obj2d_t", "`mark`: a span of time on all charts"),
    message("obj2d_legend", 0x9B8BA22Au, "dto_obj2d_t", "`legend`"),
    message("obj2d_rectangle", 0x7D8E52AAu, "dto_obj2d_t", "`rectangle`"),
    message("obj2d_text", 0x71081A56u, "dto_obj2d_t", "`text`"),
    message("page_set_page", 0x7A1D0F87u, "dto_page_set_page_t", "`set_page`"),
    message("page_new_page", 0x2F107799u, "dto_page_t", "`new_page`"),
    message("page_del_page", 0x082AFA28u, "dto_page_t", "`del_page`"),
};

// The row of an id; null for an unknown one.
constexpr const message_t* find_message(uint32_t id) {
  for (const message_t& row : message_table) {
    if (row.id == id) return &row;
  }
  return nullptr;
}

// ---- every parameter of dto_misc_t ----

// What `key`, `values` and `text` of the miscellaneous messages hold: key is name_hash(parameter).
struct parameter_t {
  const char* message;
  const char* parameter;
  const char* values;
};

inline constexpr parameter_t parameter_table[] = {
    {"app_info", "win.x", "float64: place of the window, in pixels"},
    {"app_info", "win.y", "float64"},
    {"app_info", "win.width", "float64: size of the window, in pixels"},
    {"app_info", "win.height", "float64"},
    {"app_info", "theme.file", "int32: theme of charts of files, 0 dark, 1 light"},
    {"app_info", "theme.live", "int32: theme of charts of live data, 0 dark, 1 light"},
    {"app_selfie", "path", "text: the file that the screenshot goes to"},
    {"misc_set", "tab", "int32: the tab to show, 1 to 4"},
    {"misc_set", "timeformat", "uint32: name_hash of the format's name in small letters"},
    {"misc_set", "timelimits", "two float64: first and last time shown, in seconds"},
    {"misc_set", "globaltime", "float64: time of the cursor, in seconds"},
    {"misc_reset", "all", "none: the parameters of `set` and the bookmarks go back to their initial state"},
    {"misc_close", "all", "none: every page and chart"},
    {"misc_close", "charts", "none, or uint64: id of the one chart"},
    {"misc_close", "pages", "none, or uint64: id of the one page"},
    {"misc_bookmark", "bookmark", "two float64: the earlier and the later time, in seconds"},
};

// ---- how times are shown: the texts of kvalo.set("timeformat", text) ----

struct time_format_t {
  const char* name;
  uint32_t hash;
  const char* meaning;
};

consteval time_format_t time_format(const char* name, uint32_t hash, const char* meaning) {
  if (name_hash(name) != hash) throw "not the hash of the name";
  return {name, hash, meaning};
}

// Names are compared without regard to case: the hash is that of the small letters. A host that does not
// know a hash keeps its format.
inline constexpr time_format_t time_format_table[] = {
    time_format("auto", 0x7C6DB8AAu,
                "date and time where stamps are Unix times (1e8 and later), else seconds; at first"),
    time_format("seconds", 0x9635ADC6u, "seconds as recorded: 3723.5"),
    time_format("hms", 0x0B874F73u, "hours, minutes, seconds: 1:02:03.5"),
    time_format("time", 0x7C73C1F0u, "UTC time of day: 04:02:03.5"),
    time_format("datetime", 0x2FB604E4u, "UTC date and time: 2026-11-21 04:02:03.5"),
};

// ---- every field ----

enum class field_type_t : uint8_t {
  uint32,
  int32,
  uint64,
  float64,
  character,
  chars,
  string,
  samples,
  values
};

struct field_t {
  const char* record;
  const char* name;
  field_type_t type;
  uint32_t size;    // bytes
  uint32_t offset;  // from the start of the record
  const char* meaning;
};

template <typename T>
consteval field_type_t field_type_of() {
  if constexpr (std::is_same_v<T, uint32_t>) return field_type_t::uint32;
  if constexpr (std::is_same_v<T, int32_t>) return field_type_t::int32;
  if constexpr (std::is_same_v<T, uint64_t>) return field_type_t::uint64;
  if constexpr (std::is_same_v<T, double>) return field_type_t::float64;
  if constexpr (std::is_same_v<T, char>) return field_type_t::character;
  if constexpr (std::is_same_v<T, std::string>) return field_type_t::string;
  if constexpr (std::is_same_v<T, shared_vector<double>>) return field_type_t::samples;
  if constexpr (std::is_array_v<T>) {
    return std::is_same_v<std::remove_extent_t<T>, char> ? field_type_t::chars : field_type_t::values;
  }
}

// A row of the table; does not compile when the structure has the field elsewhere.
template <typename T>
consteval field_t field(const char* record, const char* name, size_t place, uint32_t offset,
                        const char* meaning) {
  if (place != offset) throw "the structure has this field elsewhere";
  return {record, name, field_type_of<T>(), static_cast<uint32_t>(sizeof(T)), offset, meaning};
}
#define KVALO_FIELD(record, name, offset, meaning) \
  field<decltype(record::name)>(#record, #name, offsetof(record, name), offset, meaning)

inline constexpr field_t field_table[] = {
    KVALO_FIELD(dto_error_t, text, 0, "the message; one of 512 bytes or more is cut and has no end"),

    KVALO_FIELD(dto_exit_t, text, 0, "all zero"),

    KVALO_FIELD(dto_misc_t, key, 0, "hash of the parameter's name"),
    KVALO_FIELD(dto_misc_t, values, 8, "two `var_t`: the parameter's values; unused ones have tag 0"),
    KVALO_FIELD(dto_misc_t, text, 40, "a path or another text"),

    KVALO_FIELD(dto_chart_t, id, 0, "the chart; never 0 in a message"),
    KVALO_FIELD(dto_chart_t, param, 8,
                "hist: bins (8); spectrogram: samples of a transform (256); synoptic: x place; else -1"),
    KVALO_FIELD(dto_chart_t, param2, 12, "synoptic: y place; else -1"),
    KVALO_FIELD(dto_chart_t, width, 16, "synoptic: width; -1: the host's choice"),
    KVALO_FIELD(dto_chart_t, unused, 20, "-1"),
    KVALO_FIELD(dto_chart_t, red, 24, "synoptic: colour, 0 to 255; -1: the host's choice"),
    KVALO_FIELD(dto_chart_t, green, 28, ""),
    KVALO_FIELD(dto_chart_t, blue, 32, ""),
    KVALO_FIELD(dto_chart_t, unused2, 36, "-1"),
    KVALO_FIELD(dto_chart_t, vmin, 40,
                "synoptic: value at the low end; spectrogram: overlap, 0 to 1 (0.1); 1e100: not set"),
    KVALO_FIELD(dto_chart_t, vmax, 48, "synoptic: value at the high end; 1e100: not set"),
    KVALO_FIELD(dto_chart_t, unused3, 56, "1e100"),
    KVALO_FIELD(dto_chart_t, unused4, 64, "1e100"),
    KVALO_FIELD(dto_chart_t, side, 72, "y axis: 0 left, 1 right"),
    KVALO_FIELD(dto_chart_t, flags, 80, "the series' flags"),
    KVALO_FIELD(dto_chart_t, style, 88, "plot: 0 line, 1 bool, 2 dots; hist: 3 bars, 4 outline; else 0"),
    KVALO_FIELD(dto_chart_t, full_name, 96, "the series' full name; empty for a result of the script"),
    KVALO_FIELD(dto_chart_t, name, 128, "the name to show"),
    KVALO_FIELD(dto_chart_t, series_id, 160, "the series; 0: the chart is empty, or becomes so"),
    KVALO_FIELD(dto_chart_t, x, 168, "time stamps, in seconds; mesh: x axis, one per column"),
    KVALO_FIELD(dto_chart_t, y, 208,
                "values, as many; mesh: values, row by row, one row for each z. NaN: no value"),
    KVALO_FIELD(dto_chart_t, z, 248, "mesh: z axis, one per row; else empty"),

    KVALO_FIELD(dto_chart_set_chart_t, id, 0, "the chart"),
    KVALO_FIELD(dto_chart_set_chart_t, lmax, 8, "upper limit of the left axis"),
    KVALO_FIELD(dto_chart_set_chart_t, lmin, 16, "lower limit of the left axis"),
    KVALO_FIELD(dto_chart_set_chart_t, rmax, 24, "upper limit of the right axis"),
    KVALO_FIELD(dto_chart_set_chart_t, rmin, 32, "lower limit of the right axis"),
    KVALO_FIELD(dto_chart_set_chart_t, ltick, 40, "distance of ticks on the left axis"),
    KVALO_FIELD(dto_chart_set_chart_t, rtick, 48, "distance of ticks on the right axis"),
    KVALO_FIELD(dto_chart_set_chart_t, fit, 56,
                "first letter, small, of what the axes are fitted to: `l`eft, `r`ight, `b`oth; `0`: nothing"),
    KVALO_FIELD(dto_chart_set_chart_t, xlabel, 57, "title of the x axis; empty: unchanged"),

    KVALO_FIELD(dto_chart_save_t, id, 0, "the chart; 0: the page that is shown"),
    KVALO_FIELD(dto_chart_save_t, path, 8, "the file; its extension tells the format"),
    KVALO_FIELD(dto_chart_save_t, size, 1032,
                "width and height in pixels, as in `1600x900`; empty: the host's"),

    KVALO_FIELD(dto_obj2d_t, chart, 0, "the chart; 0: all charts"),
    KVALO_FIELD(dto_obj2d_t, x, 8, "place; flag: NaN where `y` counts; mark: start of the span"),
    KVALO_FIELD(dto_obj2d_t, y, 16, "place; flag: NaN where `x` counts"),
    KVALO_FIELD(dto_obj2d_t, xcenter, 24, "circle, rectangle: centre"),
    KVALO_FIELD(dto_obj2d_t, ycenter, 32, ""),
    KVALO_FIELD(dto_obj2d_t, diameter, 40, "circle: diameter, in units of the x axis"),
    KVALO_FIELD(dto_obj2d_t, height, 48, "rectangle: height"),
    KVALO_FIELD(dto_obj2d_t, width, 56, "rectangle: width; mark: length of the span"),
    KVALO_FIELD(dto_obj2d_t, red, 64, "colour, 0 to 255; -1: the host's choice"),
    KVALO_FIELD(dto_obj2d_t, green, 68, ""),
    KVALO_FIELD(dto_obj2d_t, blue, 72, ""),
    KVALO_FIELD(dto_obj2d_t, visible, 76, "legend: 1 shown, 0 hidden"),
    KVALO_FIELD(dto_obj2d_t, full, 80, "legend: 1 full names, 0 names"),
    KVALO_FIELD(dto_obj2d_t, text, 84, "the text; datatip: name of the series"),

    KVALO_FIELD(dto_page_t, id, 0, "the page; 0 in `page_del_page`: the page of that name"),
    KVALO_FIELD(dto_page_t, name, 8, "the page's name"),

    KVALO_FIELD(dto_page_set_page_t, id, 0, "the page"),
    KVALO_FIELD(dto_page_set_page_t, cols, 8, "columns of charts; -1: unchanged"),
};
#undef KVALO_FIELD

// The row of a field; null for an unknown one.
constexpr const field_t* find_field(std::string_view record, std::string_view name) {
  for (const field_t& row : field_table) {
    if (row.record == record && row.name == name) return &row;
  }
  return nullptr;
}

static_assert(sizeof(shared_vector<double>) == 40 && sizeof(std::string) == 32);
static_assert(sizeof(dto_misc_t) == 1064 && sizeof(dto_chart_t) == 288);
static_assert(sizeof(dto_chart_set_chart_t) == 128 && sizeof(dto_chart_save_t) == 1096);
static_assert(sizeof(dto_obj2d_t) == 600 && sizeof(dto_page_t) == 520 && sizeof(dto_page_set_page_t) == 16);

}  // namespace mirn3::ilc
