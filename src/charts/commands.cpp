// Module functions: charts.
#include "charts/families.h"

namespace mirn2::fn {

Rows chart_rows() {
  static const PyMethodDef rows[] = {
      row<"save", "(path, id=0, size='')", "s|Ks", "Save chart to file", pending>(),
      row<"set_chart",
          "(id, lmax=..., lmin=..., rmax=..., rmin=..., ltick=..., rtick=..., fit='0', xlabel='')",
          "K|ddddddss", "Set chart parameters", pending>(),
      row<"synoptic",
          "(id=0, obj=..., name=..., x=-1, y=-1, width=-1, min=..., max=..., red=-1, green=-1, blue=-1)",
          "|KOsiiiddiii", "Create an empty chart for displaying synoptic objects", pending>(),
      row<"bode", "(id=0, obj=..., name=...)", "|KOs",
          "Plot the Bode Diagram from input and output kvalo.TimeSeries objects", pending>(),
      row<"boolplot", "(id=0, obj=..., name=...)", "|KOs",
          "Plot a kvalo.TimeSeries object interpreting its data as boolean", pending>(),
      row<"crossplot", "(id=0, obj=..., name=..., side='left')", "|KOss",
          "Plot a kvalo.TimeSeries object against another one", pending>(),
      row<"scatterplot", "(*args, **kwargs)", "*",
          "Plot each sample of a kvalo.TimeSeries object as a disconnected dot", pending>(),
      row<"fft", "(id=0, obj=..., name=..., side='left')", "|KOss",
          "Plot the Fast Fourier Transform of a kvalo.TimeSeries object", pending>(),
      row<"heatmap", "(id=0, obj=..., name=...)", "|KOs", "Plot heatmap between two kvalo.TimeSeries objects",
          pending>(),
      row<"hist", "(id=0, obj=..., name=..., type='bar', nbins=8)", "|KOssi",
          "Plot the histogram of a kvalo.TimeSeries object", pending>(),
      row<"plot", "(id=0, obj=..., name=..., side='left', style='line')", "|KOsss",
          "Plot kvalo.TimeSeries against time", pending>(),
      row<"spectrogram", "(id=0, obj=..., name=..., nfft=256, overlap=0.1)", "|KOsid",
          "Plot the spectrogram of a kvalo.TimeSeries", pending>(),
      row<"xcorrplot", "(id=0, obj=..., name=..., side='left')", "|KOss",
          "Plot the cross-correlation between two kvalo.TimeSeries objects", pending>(),
      row<"plot3d", "(id=0, obj=..., name=...)", "|KOs", "Plot kvalo.TimeSeries in 3d projection", pending>(),
      row<"mesh", "(obj)", "O", "Plot the surface of a kvalo.Mesh object", pending>(),
  };
  return rows;
}

}  // namespace mirn2::fn
