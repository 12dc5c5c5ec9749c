// fontgen: makes the three bitmap fonts that Fentra carries in data/, each a block of 256
// glyph records (width byte, height byte, width x height palette indices row by row, 255 for
// transparent). "ncgibig" and "ncgismall" are drawn below as string art; "captionfont" is
// DejaVu Sans Bold rasterised by FreeType onto the palette's grey ramp.
// Usage: fontgen <output dir> [path of DejaVuSans-Bold.ttf]. No time stamps, no environment:
// the same FreeType and font file always give the same bytes.

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// Palette indices used by the fonts.
enum : unsigned char {
  ink_black = 0,
  ink_dark_red = 4,
  ink_grey = 7,
  ink_cyan = 11,
  ink_red = 12,
  ink_white = 15,
  ramp_first = 17,   // darkest step of the grey ramp used for coverage
  ramp_body = 39,    // the ramp's white: full coverage, the solid body of a glyph
  ink_transparent = 255,
};

struct glyph {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> pixels;   // width * height, row by row from the top
};

typedef std::vector<glyph> font;   // 256 glyphs, glyph n is character code n

// Codes 0-31 and 127-255 are placeholders except these four, which have real glyphs.
static const unsigned char extra_codes[] = {162, 163, 166, 172};   // cent, pound, broken bar, not

static void fail(const char* format, ...)
{
  va_list args;
  va_start(args, format);
  fprintf(stderr, "fontgen: ");
  vfprintf(stderr, format, args); // NOLINT(clang-analyzer-valist.Uninitialized): va_start is just above
  fprintf(stderr, "\n");
  va_end(args);
  exit(1);
}

static glyph filled_glyph(int width, int height, unsigned char index)
{
  glyph g;
  g.width = width;
  g.height = height;
  g.pixels.assign((size_t)width * height, index);
  return g;
}

static bool is_extra_code(int code)
{
  for (unsigned char c : extra_codes)
    if (c == code) return true;
  return false;
}

static bool is_placeholder_code(int code)
{
  return (code < 32 || code >= 127) && !is_extra_code(code);
}

// ---------------------------------------------------------------------------------------------
// The blocky fonts, drawn as sheets: each sheet names its character codes and gives the pixel
// rows of those glyphs side by side, one blank between neighbours. A glyph's width is the length
// of its piece of the row. '#' is white, '.' black (opaque: the black box belongs to the glyph),
// '+' grey (the small font's rounded corners).

struct glyph_sheet {
  const char* codes;
  const char* rows[8];
};

// ncgibig: line height 8. Capitals and digits use rows 0-6, small letters rows 2-6 with
// ascenders from row 0; descenders end on row 7. Most glyphs are 8 wide with the last column
// blank; narrow punctuation, 'i' and 'l' are narrower.
static const glyph_sheet big_sheets[] = {
    {"!\"#$%&'(", {
        ".##. .##.##.. .##.##.. ..##.... ##...#.. .###.... .##. ..##.",
        ".##. .##.##.. #######. .#####.. ##..##.. ##.##... .##. .##..",
        ".##. .#..#... .##.##.. ##...... ...##... .###.... .#.. ##...",
        ".##. ........ .##.##.. .####... ..##.... .###.##. .... ##...",
        ".... ........ #######. ....##.. .##..... ##.###.. .... ##...",
        ".##. ........ .##.##.. #####... ##..##.. ##..##.. .... .##..",
        ".... ........ ........ ..##.... #...##.. .###.##. .... ..##.",
        ".... ........ ........ ........ ........ ........ .... ....."}},
    {")*+,-./0", {
        "##... ........ ........ .... ........ .... .....##. .#####..",
        ".##.. .##.##.. ..##.... .... ........ .... ....##.. ##...##.",
        "..##. ..###... ..##.... .... ........ .... ...##... ##..###.",
        "..##. #######. ######.. .... ######.. .... ..##.... ##.#.##.",
        "..##. ..###... ..##.... .... ........ .... .##..... ###..##.",
        ".##.. .##.##.. ..##.... .##. ........ .##. ##...... ##...##.",
        "##... ........ ........ .##. ........ .##. #....... .#####..",
        "..... ........ ........ ##.. ........ .... ........ ........"}},
    {"12345678", {
        "..##.... .#####.. .#####.. ...###.. #######. ..####.. #######. .#####..",
        ".###.... ##...##. ##...##. ..####.. ##...... .##..... ##...##. ##...##.",
        "..##.... .....##. .....##. .##.##.. ######.. ##...... ....##.. ##...##.",
        "..##.... ...###.. ..####.. ##..##.. .....##. ######.. ...##... .#####..",
        "..##.... .###.... .....##. #######. .....##. ##...##. ..##.... ##...##.",
        "..##.... ##...... ##...##. ....##.. ##...##. ##...##. ..##.... ##...##.",
        "######.. #######. .#####.. ....##.. .#####.. .#####.. ..##.... .#####..",
        "........ ........ ........ ........ ........ ........ ........ ........"}},
    {"9:;<=>?@", {
        ".#####.. .... .... ....##.. ........ .##..... .#####.. .#####..",
        "##...##. .##. .##. ...##... ........ ..##.... ##...##. ##...##.",
        "##...##. .##. .##. ..##.... ######.. ...##... ....##.. ##.####.",
        ".######. .... .... .##..... ........ ....##.. ...##... ##.####.",
        ".....##. .... .... ..##.... ######.. ...##... ...##... ##.###..",
        "....##.. .##. .##. ...##... ........ ..##.... ........ ##......",
        ".####... .##. .##. ....##.. ........ .##..... ...##... .#####..",
        "........ .... ##.. ........ ........ ........ ........ ........"}},
    {"ABCDEFGH", {
        "..###... ######.. .#####.. #####... #######. #######. .#####.. ##...##.",
        ".##.##.. ##...##. ##...##. ##..##.. ##...... ##...... ##...##. ##...##.",
        "##...##. ##...##. ##...... ##...##. ##...... ##...... ##...... ##...##.",
        "##...##. ######.. ##...... ##...##. #####... #####... ##.####. #######.",
        "#######. ##...##. ##...... ##...##. ##...... ##...... ##...##. ##...##.",
        "##...##. ##...##. ##...##. ##..##.. ##...... ##...... ##...##. ##...##.",
        "##...##. ######.. .#####.. #####... #######. ##...... .######. ##...##.",
        "........ ........ ........ ........ ........ ........ ........ ........"}},
    {"IJKLMNOP", {
        "..####.. ....###. ##...##. ##...... ##...##. ##...##. .#####.. ######..",
        "...##... .....##. ##..##.. ##...... ###.###. ###..##. ##...##. ##...##.",
        "...##... .....##. ##.##... ##...... #######. ####.##. ##...##. ##...##.",
        "...##... .....##. ####.... ##...... ##.#.##. ##.####. ##...##. ######..",
        "...##... ##...##. ##.##... ##...... ##...##. ##..###. ##...##. ##......",
        "...##... ##...##. ##..##.. ##...... ##...##. ##...##. ##...##. ##......",
        "..####.. .#####.. ##...##. #######. ##...##. ##...##. .#####.. ##......",
        "........ ........ ........ ........ ........ ........ ........ ........"}},
    {"QRSTUVWX", {
        ".#####.. ######.. .#####.. ######.. ##...##. ##...##. ##...##. ##...##.",
        "##...##. ##...##. ##...##. ..##.... ##...##. ##...##. ##...##. ##...##.",
        "##...##. ##...##. ##...... ..##.... ##...##. ##...##. ##...##. .##.##..",
        "##...##. ######.. .#####.. ..##.... ##...##. ##...##. ##.#.##. ..###...",
        "##.#.##. ##.##... .....##. ..##.... ##...##. .##.##.. #######. .##.##..",
        "##..##.. ##..##.. ##...##. ..##.... ##...##. ..###... ###.###. ##...##.",
        ".###.##. ##...##. .#####.. ..##.... .#####.. ...#.... ##...##. ##...##.",
        "........ ........ ........ ........ ........ ........ ........ ........"}},
    {"YZ[\\]^_`", {
        "##..##.. #######. ####. ##...... ####. ...#.... ........ ##..",
        "##..##.. .....##. ##... .##..... ..##. ..###... ........ .##.",
        "##..##.. ....##.. ##... ..##.... ..##. .##.##.. ........ ..#.",
        ".####... ...##... ##... ...##... ..##. ##...##. ........ ....",
        "..##.... ..##.... ##... ....##.. ..##. ........ ........ ....",
        "..##.... .##..... ##... .....##. ..##. ........ ........ ....",
        "..##.... #######. ####. ......#. ####. ........ ........ ....",
        "........ ........ ..... ........ ..... ........ ######## ...."}},
    {"abcdefgh", {
        "........ ##...... ........ .....##. ........ ...####. ........ ##......",
        "........ ##...... ........ .....##. ........ ..##.... ........ ##......",
        ".#####.. ######.. .#####.. .######. .#####.. ######.. .######. ######..",
        ".....##. ##...##. ##...##. ##...##. ##...##. ..##.... ##...##. ##...##.",
        ".######. ##...##. ##...... ##...##. #######. ..##.... ##...##. ##...##.",
        "##...##. ##...##. ##...##. ##...##. ##...... ..##.... .######. ##...##.",
        ".######. ######.. .#####.. .######. .#####.. ..##.... .....##. ##...##.",
        "........ ........ ........ ........ ........ ........ .#####.. ........"}},
    {"ijklmnop", {
        ".##.. ....##. ##...... ###.. ........ ........ ........ ........",
        "..... ....... ##...... .##.. ........ ........ ........ ........",
        "###.. ...###. ##..##.. .##.. ##.##... ######.. .#####.. ######..",
        ".##.. ....##. ##.##... .##.. #######. ##...##. ##...##. ##...##.",
        ".##.. ....##. ####.... .##.. ##.#.##. ##...##. ##...##. ##...##.",
        ".##.. ....##. ##.##... .##.. ##.#.##. ##...##. ##...##. ######..",
        "####. ##..##. ##..##.. ####. ##...##. ##...##. .#####.. ##......",
        "..... .####.. ........ ..... ........ ........ ........ ##......"}},
    {"qrstuvwx", {
        "........ ........ ........ ..##.... ........ ........ ........ ........",
        "........ ........ ........ ..##.... ........ ........ ........ ........",
        ".######. ##.###.. .######. ######.. ##...##. ##...##. ##...##. ##...##.",
        "##...##. ###..##. ##...... ..##.... ##...##. ##...##. ##.#.##. .##.##..",
        "##...##. ##...... .#####.. ..##.... ##...##. ##...##. ##.#.##. ..###...",
        ".######. ##...... .....##. ..##.##. ##...##. .##.##.. #######. .##.##..",
        ".....##. ##...... ######.. ...###.. .######. ..###... .##.##.. ##...##.",
        ".....##. ........ ........ ........ ........ ........ ........ ........"}},
    {"yz{|}~\xa2\xa3", {
        "........ ........ ..##.. .##. .##... ........ ...##... ..####..",
        "........ ........ .##... .##. ..##.. .###.##. .######. .##..##.",
        "##...##. #######. .##... .##. ..##.. ##.###.. ##.##... .##.....",
        "##...##. ....##.. ##.... .##. ...##. ........ ##.##... ####....",
        "##...##. ...##... .##... .##. ..##.. ........ ##.##... .##.....",
        ".######. .##..... .##... .##. ..##.. ........ .######. .##...#.",
        ".....##. #######. ..##.. .##. .##... ........ ...##... #######.",
        ".#####.. ........ ...... .##. ...... ........ ........ ........"}},
    {"\xa6\xac", {
        ".##. ........",
        ".##. ........",
        ".##. ........",
        ".... #######.",
        ".... .....##.",
        ".##. .....##.",
        ".##. ........",
        ".##. ........"}},
};

// ncgismall: line height 5. Capitals and digits fill all five rows, small letters rows 1-4
// with ascenders from row 0, and letters with descenders sit a row higher with their tail on
// row 4. Mostly 3 wide; M, W, m, w, '#' and a few others need 4 or 5 columns.
static const glyph_sheet small_sheets[] = {
    {"!\"#$%&'()*+,", {
        "# #.# .#.#. +## #.# +#.. # .# #. ... ... ..",
        "# #.# ##### ##. ..# #.#. # #. .# #.# .#. ..",
        "# ... .#.#. +#+ .#. +#.# . #. .# .#. ### ..",
        ". ... ##### .## #.. #.#. . #. .# #.# .#. .#",
        "# ... .#.#. ##+ #.# +#+# . .# #. ... ... #."}},
    {"-./012345678", {
        "... . ..# ### .#. ##+ ##+ #.# ### +## ### +#+",
        "... . ..# #.# ##. ..# ..# #.# #.. #.. ..# #.#",
        "### . .#. #.# .#. +#+ .#+ ### ##+ ##+ ..# +#+",
        "... . #.. #.# .#. #.. ..# ..# ..# #.# .#. #.#",
        "... # #.. ### ### ### ##+ ..# ##+ +#+ .#. +#+"}},
    {"9:;<=>?@ABCD", {
        "+#+ . .. ..# ... #.. ##+ +##+ +#+ ##+ +## ##+",
        "#.# # .# .#. ### .#. ..# #.## #.# #.# #.. #.#",
        "+## . .. #.. ... ..# .#. #.## ### ##+ #.. #.#",
        "..# # .# .#. ### .#. ... #... #.# #.# #.. #.#",
        "##+ . #. ..# ... #.. .#. +##+ #.# ##+ +## ##+"}},
    {"EFGHIJKLMNOP", {
        "### ### +## #.# ### ..# #.# #.. #...# #..# +#+ ##+",
        "#.. #.. #.. #.# .#. ..# #.# #.. ##.## ##.# #.# #.#",
        "##. ##. #.# ### .#. ..# ##+ #.. #.#.# #.## #.# ##+",
        "#.. #.. #.# #.# .#. #.# #.# #.. #...# #..# #.# #..",
        "### #.. +## #.# ### +#+ #.# ### #...# #..# +#+ #.."}},
    {"QRSTUVWXYZ[\\", {
        "+#+ ##+ +## ### #.# #.# #...# #.# #.# ### ## #..",
        "#.# #.# #.. .#. #.# #.# #...# #.# #.# ..# #. #..",
        "#.# ##+ +#+ .#. #.# #.# #.#.# .#. .#. .#. #. .#.",
        "#+# #.# ..# .#. #.# +#+ ##.## #.# .#. #.. #. ..#",
        "+## #.# ##+ .#. +#+ .#. #...# #.# .#. ### ## ..#"}},
    {"]^_`abcdefgh", {
        "## .#. ... #. ... #.. ... ..# ... .+# ... #..",
        ".# #.# ... .# ##+ ##+ +## +## +#+ .#. +## ##+",
        ".# ... ... .. +## #.# #.. #.# ### ### #.# #.#",
        ".# ... ... .. #.# #.# #.. #.# #.. .#. +## #.#",
        "## ... ### .. +## ##+ +## +## +## .#. ##+ #.#"}},
    {"ijklmnopqrst", {
        "# .# #.. #. ..... ... ... ... ... ... ... .#.",
        ". .. #.. #. ####+ ##+ +#+ ##+ +## ##+ +## ###",
        "# .# #.# #. #.#.# #.# #.# #.# #.# #.. #+. .#.",
        "# .# ##+ #. #.#.# #.# #.# ##+ +## #.. .+# .#.",
        "# ## #.# +# #.#.# #.# +#+ #.. ..# #.. ##+ .+#"}},
    {"uvwxyz{|}~\xa2\xa3", {
        "... ... ..... ... ... ... .## # ##. .... .#. .##",
        "#.# #.# #...# #.# #.# ### .#. # .#. .#.# +## #..",
        "#.# #.# #.#.# +#+ #.# .+# #.. # ..# #.#. #.. ##.",
        "#.# +#+ #.#.# +#+ +## #+. .#. # .#. .... +## #..",
        "+## .#. +#+#+ #.# ##+ ### .## # ##. .... .#. ###"}},
    {"\xa6\xac", {
        "# ...",
        "# ###",
        ". ..#",
        "# ...",
        "# ..."}},
};

static glyph sheet_glyph(const glyph_sheet& sheet, int height, int index, int& column)
{
  glyph g;
  for (int row = 0; row < height; row++) {
    const char* text = sheet.rows[row];
    if (!text) fail("sheet \"%s\" has fewer than %d rows", sheet.codes, height);
    if (column > (int)strlen(text))
      fail("sheet \"%s\", row %d ends before glyph %d", sheet.codes, row, index);
    int start = column;
    int end = start;
    while (text[end] && text[end] != ' ') end++;
    if (row == 0) g.width = end - start;
    else if (end - start != g.width)
      fail("sheet \"%s\", glyph %d: row %d is %d wide, row 0 is %d", sheet.codes, index, row,
           end - start, g.width);
    for (int x = start; x < end; x++) {
      switch (text[x]) {
        case '#': g.pixels.push_back(ink_white); break;
        case '.': g.pixels.push_back(ink_black); break;
        case '+': g.pixels.push_back(ink_grey); break;
        default: fail("sheet \"%s\", glyph %d: unknown pixel '%c'", sheet.codes, index, text[x]);
      }
    }
  }
  g.height = height;
  column += g.width + 1;   // skip the blank between glyphs
  return g;
}

static void add_sheets(font& f, const glyph_sheet* sheets, int count, int height)
{
  std::vector<bool> drawn(256, false);
  for (int s = 0; s < count; s++) {
    int column = 0;
    int n = (int)strlen(sheets[s].codes);
    for (int i = 0; i < n; i++) {
      int code = (unsigned char)sheets[s].codes[i];
      if (drawn[code]) fail("code %d is drawn twice", code);
      drawn[code] = true;
      f[code] = sheet_glyph(sheets[s], height, i, column);
    }
    for (int row = 0; row < height; row++)
      if ((int)strlen(sheets[s].rows[row]) != column - 1)
        fail("sheet \"%s\", row %d: extra pixels after the last glyph", sheets[s].codes, row);
  }
  for (int code = 33; code < 127; code++)
    if (!drawn[code]) fail("code %d ('%c') has no glyph", code, code);
}

// Placeholders are 1 x 1 black cells; the space is given separately.
static font blocky_font(const glyph_sheet* sheets, int count, int height, const glyph& space)
{
  font f(256, filled_glyph(1, 1, ink_black));
  add_sheets(f, sheets, count, height);
  f[' '] = space;
  return f;
}

// ---------------------------------------------------------------------------------------------
// captionfont: DejaVu Sans Bold at 15 pixels per em with the font's own hinting, in a line of
// 20 rows whose baseline lies under row 14. Each glyph is cut to the rows from the top of the
// line down to its lowest inked row, and a glyph that reaches below the baseline takes the whole
// line, so all glyphs hang from the top line ('-' is 11 rows, '=' 13, ',' and 'g' 20).
// A glyph is one column narrower than its advance (the text layout adds two pixels of letter
// spacing at this line height), or wider where its ink reaches further.

enum { caption_line_height = 20, caption_pixel_size = 15, caption_baseline = 15 };

static const char* default_ttf = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";

// Coverage goes onto the 23 steps 17..39 of the palette's grey ramp, 0 stays transparent. It is
// measured against the glyph's densest pixel, so that thin marks such as '`', which cover no
// pixel fully, still have a solid body.
static unsigned char ramp_index(int coverage, int densest)
{
  if (coverage == 0) return ink_transparent;
  int steps = ramp_body - ramp_first;
  return (unsigned char)(ramp_first + (coverage * steps + densest / 2) / densest);
}

static glyph rasterise(FT_Face face, int code)
{
  if (FT_Load_Char(face, code, FT_LOAD_RENDER)) fail("no outline for code %d", code);
  FT_GlyphSlot slot = face->glyph;
  const FT_Bitmap& bm = slot->bitmap;
  if (bm.pixel_mode != FT_PIXEL_MODE_GRAY && bm.rows > 0)
    fail("code %d: not a grey-level bitmap", code);
  int shift = std::max(0, -slot->bitmap_left);   // ink left of the pen moves into column 0
  int left = slot->bitmap_left + shift;
  int advance = (int)((slot->advance.x + 32) >> 6);
  int top = caption_baseline - slot->bitmap_top;   // line row of the bitmap's first row

  int lowest = -1;
  int densest = 0;
  for (int r = 0; r < (int)bm.rows; r++)
    for (int c = 0; c < (int)bm.width; c++)
      if (int coverage = bm.buffer[r * bm.pitch + c]) {
        lowest = std::max(lowest, top + r);
        densest = std::max(densest, coverage);
      }
  if (lowest < 0) fail("code %d has no ink", code);
  if (top < 0 || lowest >= caption_line_height)
    fail("code %d spans rows %d..%d, outside the line", code, top, lowest);

  int width = std::max(left + (int)bm.width, advance - 1);
  int height = lowest >= caption_baseline ? caption_line_height : lowest + 1;
  glyph g = filled_glyph(width, height, ink_transparent);
  for (int r = 0; r < (int)bm.rows; r++)
    for (int c = 0; c < (int)bm.width; c++) {
      int coverage = bm.buffer[r * bm.pitch + c];
      if (coverage) g.pixels[(top + r) * width + left + c] = ramp_index(coverage, densest);
    }
  return g;
}

// Placeholder boxes, 3 x 5: control codes get a cyan frame round a white dot, the codes above
// 126 a red frame filled with dark red, so stray bytes show up in text.
static glyph caption_placeholder(int code)
{
  bool control = code < 32;
  glyph g = filled_glyph(3, 5, control ? ink_cyan : ink_red);
  for (int row = 1; row <= 3; row++)
    g.pixels[row * 3 + 1] = control ? ink_transparent : ink_dark_red;
  if (control) g.pixels[2 * 3 + 1] = ink_white;
  return g;
}

static font caption_font(const char* ttf_path)
{
  FT_Library library;
  FT_Face face;
  if (FT_Init_FreeType(&library)) fail("cannot start FreeType");
  if (FT_New_Face(library, ttf_path, 0, &face)) fail("cannot open %s", ttf_path);
  if (FT_Set_Pixel_Sizes(face, 0, caption_pixel_size)) fail("cannot size %s", ttf_path);

  font f(256);
  for (int code = 0; code < 256; code++) {
    if (is_placeholder_code(code)) f[code] = caption_placeholder(code);
    else if (code != ' ') f[code] = rasterise(face, code);
  }
  f['\t'] = filled_glyph(16, 1, ink_transparent);
  f[' '] = filled_glyph(2, 1, ink_transparent);

  FT_Done_Face(face);
  FT_Done_FreeType(library);
  return f;
}

// ---------------------------------------------------------------------------------------------

static void write_font(const std::string& path, const font& f)
{
  std::vector<unsigned char> bytes;
  for (const glyph& g : f) {
    if (g.width > 255 || g.height > 255 || (int)g.pixels.size() != g.width * g.height)
      fail("bad glyph size %d x %d for %s", g.width, g.height, path.c_str());
    bytes.push_back((unsigned char)g.width);
    bytes.push_back((unsigned char)g.height);
    bytes.insert(bytes.end(), g.pixels.begin(), g.pixels.end());
  }
  FILE* file = fopen(path.c_str(), "wb");
  if (!file) fail("cannot write %s", path.c_str());
  bool ok = fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  ok = fclose(file) == 0 && ok;
  if (!ok) fail("cannot write %s", path.c_str());
  printf("%s: %zu bytes\n", path.c_str(), bytes.size());
}

int main(int argc, char** argv)
{
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: fontgen <output dir> [DejaVuSans-Bold.ttf]\n");
    return 2;
  }
  std::string dir = argv[1];
  const char* ttf = argc == 3 ? argv[2] : default_ttf;

  int big_count = sizeof big_sheets / sizeof big_sheets[0];
  int small_count = sizeof small_sheets / sizeof small_sheets[0];
  // The space is a transparent 2 x 1 blank in ncgibig and a 1 x 1 black cell in ncgismall.
  write_font(dir + "/ncgibig.fnt",
             blocky_font(big_sheets, big_count, 8, filled_glyph(2, 1, ink_transparent)));
  write_font(dir + "/ncgismall.fnt",
             blocky_font(small_sheets, small_count, 5, filled_glyph(1, 1, ink_black)));
  write_font(dir + "/captionfont.fnt", caption_font(ttf));
  return 0;
}
