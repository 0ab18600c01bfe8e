// The table of the module's functions.
#include "module/function_table.h"

#include "containers/clipboard.h"
#include "containers/registry_functions.h"
#include "export/export.h"
#include "functions/angles.h"
#include "functions/calculus.h"
#include "functions/conditioning.h"
#include "functions/filters.h"
#include "functions/fits.h"
#include "functions/generators.h"
#include "functions/insight.h"
#include "functions/lookup.h"
#include "functions/math.h"
#include "functions/spectral.h"
#include "functions/units.h"
#include "module/config_functions.h"
#include "module/host_functions.h"
#include "objects/frame.h"
#include "objects/unavailable.h"

namespace mirn2 {

namespace {

constexpr int positional = METH_VARARGS;
constexpr int keyworded = METH_VARARGS | METH_KEYWORDS;

}  // namespace

// clang-format off
PyMethodDef function_table[] = {
    {"callback", fn::callback, positional, "Internal use only"},
    {"exit", fn::exit, positional, "Exit application"},
    {"selfie", with_keywords(fn::selfie), keyworded, "Take screenshot of application window"},
    {"export_to_file", with_keywords(fn::export_to_file), keyworded, "Export a kvalo.Container or a list of kvalo.TimeSeries objects to a delimiter-separated values file"},
    {"create_array", fn::create_array, positional, "Create new kvalo.Array from a capsule (containing a pointer to the data) and its number of elements. The new instance will retain the ownership of the pointer"},
    {"create_array_random", fn::create_array_random, positional, "Create new kvalo.Array object with random values between -1.0 and 1.0"},
    {"create_array_ones", fn::create_array_ones, positional, "Create new kvalo.Array object with all values set to 1.0"},
    {"create_array_zeros", fn::create_array_zeros, positional, "Create new kvalo.Array object with all values set to 0.0"},
    {"create_from_clipboard", fn::create_from_clipboard, positional, "Create new kvalo.Container object from clipboard content"},
    {"create_chirp", with_keywords(fn::create_chirp), keyworded, "Create new kvalo.TimeSeries object with a chirp signal in the y-axis"},
    {"create_const", with_keywords(fn::create_const), keyworded, "Create new kvalo.TimeSeries object with a constant value in the y-axis"},
    {"create_ramp", with_keywords(fn::create_ramp), keyworded, "Create new kvalo.TimeSeries object with a ramp signal in the y-axis"},
    {"create_random", with_keywords(fn::create_random), keyworded, "Create new kvalo.TimeSeries object with a random values in the y-axis"},
    {"create_sine", with_keywords(fn::create_sine), keyworded, "Create new kvalo.TimeSeries object with a sine wave in the y-axis"},
    {"create_step", with_keywords(fn::create_step), keyworded, "Create new kvalo.TimeSeries object with a step signal in the y-axis"},
    {"create_mesh_sinc", with_keywords(fn::create_mesh_sinc), keyworded, "Create new kvalo.Mesh object with the sinc function values in the y-axis"},
    {"find_by_ratio", with_keywords(fn::find_by_ratio), keyworded, "Find compatible kvalo.Container for merging"},
    {"find", fn::find, positional, "Find first kvalo.TimeSeries using regular expression"},
    {"list", fn::list, positional, "List all kvalo.TimeSeries using regular expression"},
    {"get_config", with_keywords(fn::get_config), keyworded, "Get configuration parameter"},
    {"set_config", with_keywords(fn::set_config), keyworded, "Set configuration parameter"},
    {"bookmark", with_keywords(unavailable_ternary<"bookmark">), keyworded, "Insert bookmark in the horizontal scrollbar"},
    {"close", with_keywords(unavailable_ternary<"close">), keyworded, "Close pages or charts"},
    {"reset", with_keywords(unavailable_ternary<"reset">), keyworded, "Reset global parameters"},
    {"set", unavailable<"set">, positional, "Set global parameters"},
    {"save", with_keywords(unavailable_ternary<"save">), keyworded, "Save chart to file"},
    {"set_chart", with_keywords(unavailable_ternary<"set_chart">), keyworded, "Set chart parameters"},
    {"synoptic", with_keywords(unavailable_ternary<"synoptic">), keyworded, "Create an empty chart for displaying synoptic objects"},
    {"bode", with_keywords(unavailable_ternary<"bode">), keyworded, "Plot the Bode Diagram from input and output kvalo.TimeSeries objects"},
    {"boolplot", with_keywords(unavailable_ternary<"boolplot">), keyworded, "Plot a kvalo.TimeSeries object interpreting its data as boolean"},
    {"crossplot", with_keywords(unavailable_ternary<"crossplot">), keyworded, "Plot a kvalo.TimeSeries object against another one"},
    {"scatterplot", with_keywords(unavailable_ternary<"scatterplot">), keyworded, "Plot each sample of a kvalo.TimeSeries object as a disconnected dot"},
    {"fft", with_keywords(unavailable_ternary<"fft">), keyworded, "Plot the Fast Fourier Transform of a kvalo.TimeSeries object"},
    {"heatmap", with_keywords(unavailable_ternary<"heatmap">), keyworded, "Plot heatmap between two kvalo.TimeSeries objects"},
    {"hist", with_keywords(unavailable_ternary<"hist">), keyworded, "Plot the histogram of a kvalo.TimeSeries object"},
    {"plot", with_keywords(unavailable_ternary<"plot">), keyworded, "Plot kvalo.TimeSeries against time"},
    {"spectrogram", with_keywords(unavailable_ternary<"spectrogram">), keyworded, "Plot the spectrogram of a kvalo.TimeSeries"},
    {"xcorrplot", with_keywords(unavailable_ternary<"xcorrplot">), keyworded, "Plot the cross-correlation between two kvalo.TimeSeries objects"},
    {"plot3d", with_keywords(unavailable_ternary<"plot3d">), keyworded, "Plot kvalo.TimeSeries in 3d projection"},
    {"mesh", with_keywords(unavailable_ternary<"mesh">), keyworded, "Plot the surface of a kvalo.Mesh object"},
    {"circle", with_keywords(unavailable_ternary<"circle">), keyworded, "Create a circle in a chart"},
    {"datatip", with_keywords(unavailable_ternary<"datatip">), keyworded, "Create a datatip in a chart"},
    {"flag", with_keywords(unavailable_ternary<"flag">), keyworded, "Create a flag in all charts"},
    {"mark", with_keywords(unavailable_ternary<"mark">), keyworded, "Create a mark in all charts"},
    {"legend", with_keywords(unavailable_ternary<"legend">), keyworded, "Setup the legend in a chart"},
    {"rectangle", with_keywords(unavailable_ternary<"rectangle">), keyworded, "Create a rectangle in a chart"},
    {"text", with_keywords(unavailable_ternary<"text">), keyworded, "Create a text in a chart"},
    {"angular_distance", with_keywords(fn::angular_distance), keyworded, "Minimum distance between two angles"},
    {"derivative", fn::derivative, positional, "Discrete derivative"},
    {"integral", fn::integral, positional, "Discrete integration (numerical quadrature), calculated using the trapezoidal rule"},
    {"diff", fn::diff, positional, "Differences between adjacent elements"},
    {"accumulate", fn::accumulate, positional, "The nth element is the sum of the 1...n elements of the argument"},
    {"unpack", with_keywords(fn::unpack), keyworded, "Unpack values, selecting the desired bits and applying offset and resolution (bit extraction)"},
    {"debounce", with_keywords(fn::debounce), keyworded, "Debounce. Persistences should be provided in the same unit of the argument's time vector"},
    {"hysteresis", with_keywords(fn::hysteresis), keyworded, "Output 1 if the argument is bigger than the upper threshold and 0 if the argument is smaller than the lower threshold"},
    {"clamp", with_keywords(fn::clamp), keyworded, "If argument is less than lower limit, returns lower limit; otherwise if argument is greater than upper limit, returns higher limit; otherwise returns argument"},
    {"drop", with_keywords(fn::drop), keyworded, "Drop elements within either of the specified limits"},
    {"in_range", with_keywords(fn::in_range), keyworded, "Check whether argument is within boundaries"},
    {"stale", with_keywords(fn::stale), keyworded, "Check whether argument has been the same in the previous samples"},
    {"lowpass", with_keywords(fn::lowpass), keyworded, "Low-pass filter"},
    {"highpass", with_keywords(fn::highpass), keyworded, "High-pass filter"},
    {"lerp", with_keywords(fn::lerp), keyworded, "Linear interpolation"},
    {"lut1d", with_keywords(fn::lut1d), keyworded, "Lookup table interpolation (1D)"},
    {"lut2d", with_keywords(fn::lut2d), keyworded, "Lookup table interpolation (2D)"},
    {"insight", with_keywords(fn::insight), keyworded, "List events that happened before rising edge of the input"},
    {"fftdata", with_keywords(fn::fftdata), keyworded, "Calculate FFT data"},
    {"heatmapdata", with_keywords(fn::heatmapdata), keyworded, "Calculate heatmap data"},
    {"histdata", with_keywords(fn::histdata), keyworded, "Calculate histogram data"},
    {"estimate_sampling_frequency", fn::estimate_sampling_frequency, positional, "Estimate each sample frequency"},
    {"estimate_sampling_period", fn::estimate_sampling_period, positional, "Estimate each sample period"},
    {"fit_linear", fn::fit_linear, positional, "Linear curve fit: Y = A*X + B"},
    {"fit_exp", fn::fit_exp, positional, "Exponential curve fit: Y = A * exp(B*X)"},
    {"fit_polynomial", fn::fit_polynomial, positional, "Polynomial curve fit: Y = B0 + B1*X + B2*X^2 + ...  + Bn*X^n"},
    {"convert", fn::convert, positional, "Convert between units"},
    {"cos", fn::cos, positional, "Cosine (radians)"},
    {"sin", fn::sin, positional, "Sine (radians)"},
    {"tan", fn::tan, positional, "Tangent (radians)"},
    {"cosd", fn::cosd, positional, "Cosine (degrees)"},
    {"sind", fn::sind, positional, "Sine (degrees)"},
    {"tand", fn::tand, positional, "Tangent (degrees)"},
    {"acos", fn::acos, positional, "Arc cosine (radians)"},
    {"asin", fn::asin, positional, "Arc sine (radians)"},
    {"atan", fn::atan, positional, "Arc tangent (radians)"},
    {"acosd", fn::acosd, positional, "Arc cosine (degrees)"},
    {"asind", fn::asind, positional, "Arc sine (degrees)"},
    {"atand", fn::atand, positional, "Arc tangent (degrees)"},
    {"ceil", fn::ceil, positional, "Computes the smallest integer value not less than argument"},
    {"floor", fn::floor, positional, "Computes the largest integer value not greater than argument"},
    {"round", fn::round, positional, "Computes the nearest integer value to arg (in floating-point format), rounding halfway cases away from zero"},
    {"trunc", fn::trunc, positional, "Computes the nearest integer not greater in magnitude than the argument"},
    {"exp", fn::exp, positional, "Power of base e"},
    {"sqrt", fn::sqrt, positional, "Square root"},
    {"log", fn::log, positional, "Natural logarithm (base e)"},
    {"log10", fn::log10, positional, "Logarithm of base 10"},
    {"merge", with_keywords(fn::merge), keyworded, "Find compatible kvalo.Container and merge file into it"},
    {"set_page", with_keywords(unavailable_ternary<"set_page">), keyworded, "Set page parameters"},
    {"new_page", with_keywords(unavailable_ternary<"new_page">), keyworded, "Create page"},
    {"del_page", with_keywords(unavailable_ternary<"del_page">), keyworded, "Remove page"},
    {nullptr, nullptr, 0, nullptr},
};
// clang-format on

static_assert(sizeof(function_table) / sizeof(function_table[0]) == 98 + 1);

}  // namespace mirn2
