// Draws the resource folder: the pictures of "Images" as PNG and the cursors
// of "Cursors" as 32 x 32 cursor files with a 32-bit picture.
//   orvanta-resources <folder>
#include <cairo.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

using Painter = std::function<void(cairo_t*, double size)>;

void Rgb(cairo_t* cr, uint32_t rgb, double alpha = 1.0) {
  cairo_set_source_rgba(cr, ((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0,
                        (rgb & 0xFF) / 255.0, alpha);
}

// A white shape with a black outline: what every cursor and mark is drawn as.
void Outlined(cairo_t* cr, double width) {
  Rgb(cr, 0xFFFFFF);
  cairo_fill_preserve(cr);
  Rgb(cr, 0x000000);
  cairo_set_line_width(cr, width);
  cairo_stroke(cr);
}

cairo_surface_t* Paint(int width, int height, const Painter& painter) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_scale(cr, width / 32.0, height / 32.0);
  painter(cr, 32.0);
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  return surface;
}

// An arrow along the x axis from -l to l, with heads at both ends (or one).
void DoubleArrow(cairo_t* cr, double l, bool both) {
  cairo_move_to(cr, l, 0);
  cairo_line_to(cr, l - 6, -6);
  cairo_line_to(cr, l - 6, -2);
  cairo_line_to(cr, both ? -l + 6 : -l, -2);
  if (both) {
    cairo_line_to(cr, -l + 6, -6);
    cairo_line_to(cr, -l, 0);
    cairo_line_to(cr, -l + 6, 6);
  }
  cairo_line_to(cr, both ? -l + 6 : -l, 2);
  cairo_line_to(cr, l - 6, 2);
  cairo_line_to(cr, l - 6, 6);
  cairo_close_path(cr);
}

Painter Arrow(double angle, bool both) {
  return [angle, both](cairo_t* cr, double) {
    cairo_translate(cr, 16, 16);
    cairo_rotate(cr, angle);
    DoubleArrow(cr, 13, both);
    Outlined(cr, 1.2);
  };
}

void Move(cairo_t* cr, double) {
  cairo_translate(cr, 16, 16);
  DoubleArrow(cr, 14, true);
  cairo_rotate(cr, M_PI / 2);
  DoubleArrow(cr, 14, true);
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
  Outlined(cr, 1.2);
}

void Cross(cairo_t* cr, double) {
  for (double width : {3.0, 1.0}) {
    Rgb(cr, width > 2 ? 0xFFFFFF : 0x000000);
    cairo_set_line_width(cr, width);
    cairo_move_to(cr, 16.5, 2);
    cairo_line_to(cr, 16.5, 31);
    cairo_move_to(cr, 2, 16.5);
    cairo_line_to(cr, 31, 16.5);
    cairo_stroke(cr);
  }
}

// A cross with a small sign of the tool at its lower right.
Painter Tool(const std::function<void(cairo_t*)>& sign) {
  return [sign](cairo_t* cr, double size) {
    Cross(cr, size);
    cairo_save(cr);
    cairo_translate(cr, 20, 20);
    sign(cr);
    cairo_restore(cr);
    Outlined(cr, 1.0);
  };
}

void Mouse(cairo_t* cr, bool left) {
  cairo_new_path(cr);
  cairo_move_to(cr, 6, 12);
  cairo_curve_to(cr, 6, 3, 26, 3, 26, 12);
  cairo_line_to(cr, 26, 22);
  cairo_curve_to(cr, 26, 31, 6, 31, 6, 22);
  cairo_close_path(cr);
  Outlined(cr, 1.5);
  // The pressed button.
  cairo_move_to(cr, 16, 5.3);
  if (left) {
    cairo_curve_to(cr, 10, 5.3, 6.8, 7.5, 6.8, 12);
    cairo_line_to(cr, 16, 12);
  } else {
    cairo_curve_to(cr, 22, 5.3, 25.2, 7.5, 25.2, 12);
    cairo_line_to(cr, 16, 12);
  }
  cairo_close_path(cr);
  Rgb(cr, 0xE02020);
  cairo_fill(cr);
  Rgb(cr, 0x000000);
  cairo_set_line_width(cr, 1.0);
  cairo_move_to(cr, 16, 5);
  cairo_line_to(cr, 16, 12);
  cairo_move_to(cr, 6.5, 12.5);
  cairo_line_to(cr, 25.5, 12.5);
  cairo_stroke(cr);
}

void Camera(cairo_t* cr, double) {
  cairo_rectangle(cr, 3, 9, 26, 18);
  Outlined(cr, 1.0);
  cairo_rectangle(cr, 11, 5, 10, 4);
  Outlined(cr, 1.0);
  cairo_arc(cr, 16, 18, 6, 0, 2 * M_PI);
  Rgb(cr, 0x304060);
  cairo_fill_preserve(cr);
  Rgb(cr, 0x000000);
  cairo_stroke(cr);
}

void Put16(std::vector<uint8_t>* out, uint32_t v) {
  out->push_back(v & 0xFF);
  out->push_back((v >> 8) & 0xFF);
}
void Put32(std::vector<uint8_t>* out, uint32_t v) {
  Put16(out, v & 0xFFFF);
  Put16(out, v >> 16);
}

// A cursor file with one 32 x 32 picture: the icon directory, a bitmap
// header of twice the height, the colour rows bottom-up (straight alpha)
// and an all-clear mask.
bool WriteCursor(const std::string& path, const Painter& painter, int xHot, int yHot) {
  constexpr int kSize = 32;
  cairo_surface_t* surface = Paint(kSize, kSize, painter);
  const uint8_t* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  const uint32_t maskBytes = kSize * 4;  // 1 bit a pixel, rows of 4 bytes
  const uint32_t imageBytes = 40 + kSize * kSize * 4 + maskBytes;
  std::vector<uint8_t> out;
  Put16(&out, 0);
  Put16(&out, 2);
  Put16(&out, 1);
  out.push_back(kSize);
  out.push_back(kSize);
  out.push_back(0);
  out.push_back(0);
  Put16(&out, static_cast<uint32_t>(xHot));
  Put16(&out, static_cast<uint32_t>(yHot));
  Put32(&out, imageBytes);
  Put32(&out, 22);
  Put32(&out, 40);
  Put32(&out, kSize);
  Put32(&out, kSize * 2);
  Put16(&out, 1);
  Put16(&out, 32);
  for (int i = 0; i < 6; ++i) Put32(&out, 0);
  for (int y = kSize - 1; y >= 0; --y) {
    const auto* row = reinterpret_cast<const uint32_t*>(data + y * stride);
    for (int x = 0; x < kSize; ++x) {
      const uint32_t c = row[x], a = c >> 24;
      uint32_t straight = c & 0xFF000000u;
      for (int shift = 0; shift < 24; shift += 8)
        straight |= (a ? (((c >> shift) & 0xFF) * 255 + a / 2) / a : 0) << shift;
      Put32(&out, straight);
    }
  }
  out.insert(out.end(), maskBytes, 0);
  cairo_surface_destroy(surface);
  FILE* file = fopen(path.c_str(), "wb");
  if (!file) return false;
  bool ok = fwrite(out.data(), 1, out.size(), file) == out.size();
  return fclose(file) == 0 && ok;
}

// A digit of the countdown before a recording: white strokes on a dark,
// half transparent disc, so that the desktop shows round it. Drawn as
// strokes rather than text, so that every machine draws the same digits.
Painter Digit(int digit) {
  return [digit](cairo_t* cr, double) {
    cairo_arc(cr, 16, 16, 15, 0, 2 * M_PI);
    Rgb(cr, 0x101820, 0.7);
    cairo_fill_preserve(cr);
    Rgb(cr, 0xFFFFFF);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    cairo_new_path(cr);
    if (digit == 1) {
      cairo_move_to(cr, 12.5, 11);
      cairo_line_to(cr, 16.5, 7.5);
      cairo_line_to(cr, 16.5, 24.5);
      cairo_move_to(cr, 12.5, 24.5);
      cairo_line_to(cr, 20.5, 24.5);
    } else if (digit == 2) {
      cairo_arc(cr, 16, 12, 4.5, M_PI, 2.25 * M_PI);
      cairo_line_to(cr, 11.5, 24.5);
      cairo_line_to(cr, 20.5, 24.5);
    } else {
      cairo_arc(cr, 16, 11.75, 4.25, -0.85 * M_PI, 0.5 * M_PI);
      cairo_new_sub_path(cr);
      cairo_arc(cr, 16, 20.25, 4.25, -0.5 * M_PI, 0.85 * M_PI);
    }
    cairo_set_line_width(cr, 2.5);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke(cr);
  };
}

bool WritePng(const std::string& path, int width, int height, const Painter& painter) {
  cairo_surface_t* surface = Paint(width, height, painter);
  bool ok = cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: orvanta-resources <folder>\n");
    return 2;
  }
  const std::string folder = argv[1], images = folder + "/Images", cursors = folder + "/Cursors";
  for (const std::string& dir : {folder, images, cursors}) mkdir(dir.c_str(), 0755);

  bool ok = WritePng(images + "/Cross.png", 33, 33, Cross) &&
            WritePng(images + "/MoveLarge.png", 64, 64, Move) &&
            WritePng(images + "/MoveSmall.png", 48, 48, Move) &&
            WritePng(images + "/Camera.png", 256, 256, Camera) &&
            WritePng(images + "/Mouse-Left-Click.png", 64, 64,
                     [](cairo_t* cr, double) { Mouse(cr, true); }) &&
            WritePng(images + "/Mouse-Right-Click.png", 64, 64,
                     [](cairo_t* cr, double) { Mouse(cr, false); });
  for (int digit = 1; ok && digit <= 3; ++digit)
    ok = WritePng(images + "/Countdown" + std::to_string(digit) + ".png", 256, 256, Digit(digit));

  struct CursorFile {
    const char* name;
    Painter painter;
    int xHot, yHot;
  };
  const double down = M_PI / 2;
  const CursorFile files[] = {
      {"splitv.cur", Arrow(down, true), 16, 16},
      {"splith.cur", Arrow(0, true), 16, 16},
      {"splitt.cur", Arrow(-down, false), 16, 16},
      {"splitb.cur", Arrow(down, false), 16, 16},
      {"splitl.cur", Arrow(M_PI, false), 16, 16},
      {"splitr.cur", Arrow(0, false), 16, 16},
      {"Cross.cur", Cross, 16, 16},
      {"Rect.cur", Tool([](cairo_t* cr) { cairo_rectangle(cr, 0, 0, 9, 7); }), 16, 16},
      {"Window.cur", Tool([](cairo_t* cr) {
         cairo_rectangle(cr, 0, 0, 10, 8);
         cairo_rectangle(cr, 0, 0, 10, 2);
       }),
       16, 16},
      {"Rect_Shape.cur", Tool([](cairo_t* cr) { cairo_rectangle(cr, 0, 0, 9, 7); }), 16, 16},
      {"Ellipse_Shape.cur", Tool([](cairo_t* cr) {
         cairo_save(cr);
         cairo_translate(cr, 5, 4);
         cairo_scale(cr, 5, 3.5);
         cairo_arc(cr, 0, 0, 1, 0, 2 * M_PI);
         cairo_restore(cr);
       }),
       16, 16},
      {"Brush_Shape.cur", Tool([](cairo_t* cr) { cairo_arc(cr, 5, 5, 4, 0, 2 * M_PI); }), 16, 16},
      {"Arrow_Shape.cur", Tool([](cairo_t* cr) {
         cairo_move_to(cr, 10, 0);
         cairo_line_to(cr, 4, 1);
         cairo_line_to(cr, 6, 3);
         cairo_line_to(cr, 0, 9);
         cairo_line_to(cr, 1, 10);
         cairo_line_to(cr, 7, 4);
         cairo_line_to(cr, 9, 6);
         cairo_close_path(cr);
       }),
       16, 16},
      {"Line_Shape.cur", Tool([](cairo_t* cr) {
         cairo_move_to(cr, 0, 9);
         cairo_line_to(cr, 9, 0);
         cairo_line_to(cr, 10, 1);
         cairo_line_to(cr, 1, 10);
         cairo_close_path(cr);
       }),
       16, 16},
      {"Airbrush_Shape.cur", Tool([](cairo_t* cr) {
         for (int i = 0; i < 5; ++i) cairo_rectangle(cr, (i * 7) % 10, (i * 3) % 9, 2, 2);
       }),
       16, 16},
      {"Number_Shape.cur", Tool([](cairo_t* cr) { cairo_arc(cr, 5, 5, 5, 0, 2 * M_PI); }), 16, 16},
      {"Text_Shape.cur", Tool([](cairo_t* cr) {
         cairo_rectangle(cr, 0, 0, 10, 2);
         cairo_rectangle(cr, 4, 0, 2, 10);
       }),
       16, 16},
  };
  for (const CursorFile& file : files)
    ok = WriteCursor(cursors + "/" + file.name, file.painter, file.xHot, file.yHot) && ok;
  if (!ok) fprintf(stderr, "orvanta-resources: could not write %s\n", folder.c_str());
  return ok ? 0 : 1;
}
