// The sheet both painting benchmarks paint: 45 rows by 22 columns of numbers, dates, percents
// and text typed as a person would, every third row boxed with thin borders, so that a 1280 by
// 800 window is full of formatted cells. Needs a platform installed (fonts) before the call.
#pragma once
#include <benchmark/benchmark.h>

#include <string>

#include "base/text.h"
#include "edit/entry.h"
#include "model/styles.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/resources.h"
#include "shell/view.h"

inline void StoreTyped(uint32_t book, uint32_t row, uint32_t col, const std::u16string& text) {
  EntryTarget target{};
  target.book = book;
  target.range = Range{static_cast<uint16_t>(row), static_cast<uint16_t>(row),
                       static_cast<uint8_t>(col), static_cast<uint8_t>(col)};
  EntryStatus status;
  StoreEntry(text.c_str(), &target, &status);
}

// Makes the workbook and the drawing resources, and lays out a 1280 by 800 view; returns the
// workbook's index.
inline uint32_t BuildPaintSheet() {
  uint32_t book = 0;
  CreateWorkbook(nullptr, 0, &book);
  CreateDrawResources();
  for (uint32_t row = 0; row < 45; row++)
    for (uint32_t col = 0; col < 22; col++) {
      std::u16string text;
      switch (col % 4) {
        case 0:
          text = Utf8ToU16(std::to_string(row * 1000 + col * 7.25));
          break;
        case 1:
          text = Utf8ToU16(std::to_string(1 + row % 28) + "/" + std::to_string(1 + col % 12) +
                           "/2026");
          break;
        case 2:
          text = Utf8ToU16(std::to_string(row % 100) + "%");
          break;
        default:
          text = u"Texte " + Utf8ToU16(std::to_string(row));
          break;
      }
      for (char16_t& c : text)
        if (c == u'.') c = u',';
      StoreTyped(book, row, col, text);
      Cell* cell = CellAt(&GetSheet(book, 0)->cells, row, col);
      if (cell && row % 3 == 0) {
        Xf xf = GetWorkbook(book)->xfs[cell->xf];
        xf.topStyle = xf.leftStyle = xf.bottomStyle = xf.rightStyle = 1;
        xf.bottomColor = xf.rightColor = xf.topColor = xf.leftColor = 8;
        uint16_t index;
        if (InternXf(book, &xf, &index)) cell->xf = index;
      }
    }
  GetSheet(book, 0)->selection = Range{2, 4, 1, 3};
  FrameSizes frame{1280, 800, 0, 20, 16, 16};
  MeasureView(&frame);
  return book;
}

// Reports how many rows and columns the window showed, and releases what BuildPaintSheet made.
inline void FinishPaintSheet(benchmark::State& state, uint32_t book) {
  state.counters["rows"] = GetSheet(book, 0)->bottomRow + 1;
  state.counters["columns"] = GetSheet(book, 0)->rightCol + 1;
  FreeDrawResources();
  ClearUndo();
  CloseAllWorkbooks();
}
