// Morvane bitmap text: fonts carried as glyph-record blocks, the font registry and its style
// variants chosen by specifier strings, the text markup (Greek letters, scripts, colour and tab
// tags), layout with word wrap, and drawing of text as textured quads in pixel coordinates.
#pragma once

#include <cstddef>
#include <string_view>

struct BitmapFont;

// ---------------------------------------------------------------------------------------
// [SECTION] Fonts and the registry

constexpr int font_slots = 512;   // glyph codes 0 .. 511; Greek letters sit at 256 .. 308

// The style of a font variant, and the key that specifiers are parsed into. Two keys are the
// same when all their bytes are (the record has no padding, keys are always fully initialised).
struct fontstyle {
    BitmapFont *base;   // font whose glyph tables and texture are used
    float scaleX;       // 1.0
    float scaleY;       // 1.0
    float skew;         // 0.0; shear ratio, kept in names, glyphs are drawn upright
    float boldness;     // 0.0; extra advance as a fraction of the scaled glyph width
    int slots;          // 512 in a font loaded from data, 0 in a made variant
    int spare;          // always 0
};

struct BitmapFont {
    unsigned texture;               // GL texture with every glyph; variants share their base's
    int glyphX[font_slots];         // left column of each glyph in the texture
    int glyphY[font_slots];         // top row of each glyph in the texture
    int glyphWidth[font_slots];     // 0 where there is no glyph
    int textureWidth, textureHeight;
    float padding;                  // texels of border round each glyph; 0 in every font made here
    int maxGlyphWidth;
    int lineHeight;                 // tallest glyph of the block, at least 1
    int referenceAdvance;           // width of 'C' plus 1
    char *name;
    fontstyle style;                // style.base: the font itself for a loaded font
};

struct fontregistry {
    BitmapFont **fonts;   // in order of loading
    int count;
    int capacity;         // 1 at first; when full, (count + 1) / 0.8
};

extern fontregistry font_registry;

// The current font, the key it was chosen by, and its metrics in pixels.
extern BitmapFont *current_font;
extern fontstyle current_style;
extern int current_cell_width;          // (int)(base maxGlyphWidth x scaleX)
extern int current_line_height;         // (int)(base lineHeight x scaleY); callers space lines by it
extern int current_reference_advance;   // (int)(base referenceAdvance x scaleX)

// Registers a font built from a block of glyph records (the caller keeps the block). The first
// font registered becomes current.
void loadfontdata(const unsigned char *bytes, size_t count, const char *name);
// The same, but with mask set every glyph becomes white with its brightness as alpha.
void loadfontmask(const unsigned char *bytes, size_t count, const char *name, int mask);
// Reads a whole font file and registers it; a missing or empty file is fatal.
void loadfont(const char *path, const char *name);

void setfont(BitmapFont *font);   // null or the current font: nothing changes
void unloadfont(const char *specifier);   // a base font goes with its variants
void unloadfontfamily(const char *specifier);   // the fetched font and every variant of it

// Shelf packing of a glyph-record block into one texture, without any GL: fills the glyph
// tables, lineHeight, textureWidth/Height (powers of two), maxGlyphWidth and referenceAdvance
// of font. maxtx is the widest shelf allowed. Reads no byte past count: a record that does not
// fit whole ends the block. Returns the number of records used (at most 512).
int packfontdata(const unsigned char *bytes, size_t count, int maxtx, BitmapFont *font);

// Puts a font record at the end of the registry, and makes it current when none is.
void registerfont(BitmapFont *font);

// ---------------------------------------------------------------------------------------
// [SECTION] Specifiers: "name:keyword=value:keyword..."
// Keywords: normal, scale/size, big, small, width, height, boldness, demibold, bold, black,
// skew/angle, italic. Values may end in "px" (pixels), '%' or a degree sign (skew, angle).

fontstyle parsefontspec(const char *specifier);
BitmapFont *fontvariant(const fontstyle *key);   // closest registered variant, or a new one
// Score of record against key (1 = same style, -1000 = other base); above 0 it may be reused.
double fontvariantscore(const fontstyle *key, const BitmapFont *record);
void usefont(const fontstyle *key);
void selectfont(const char *specifier);
void selectdefaultfont();                        // "ncgibig"
BitmapFont *findfont(const char *specifier);     // like selectfont, without making it current
BitmapFont *fallbackfont(const char *name);      // a 1 x 1 stand-in when no font is registered

// ---------------------------------------------------------------------------------------
// [SECTION] Markup
// Compiled text items: 0 end; 10 line break; 2,hi,lo glyph code hi*256+lo; 5,n,payload[4]
// command n (0 colour 0x00RRGGBB, 1 pen x, 2 script scale u16 + raise s16, little-endian);
// any other byte a glyph code.
// The passes work in place in a buffer of capacity bytes (terminator included) and never write
// past it. A replacement that needs more room than is left is not made: the pass stops at that
// point and leaves it and the rest of the text as written.
// Each pass has two forms. The length form takes the text's length: its content is the whole
// items of its first length bytes (at most capacity - 1), up to an end item (a zero lead byte);
// an item cut by the length is dropped, and no byte behind the content is ever read. It writes
// the terminator and returns the new length. The zero-terminated form finds the length by
// walking the items, so it needs whole items: the bytes of a cut item run on past the
// terminator. Text not terminated within the buffer is cut there.

constexpr int text_command_colour = 0;
constexpr int text_command_pen_x = 1;
constexpr int text_command_script = 2;

// Greek letter names ("alpha" .. "omega", capitalised for the capitals, "vartheta" ...) to
// glyph codes 256 .. 308.
char *greekcodes(char *text, size_t capacity);
size_t greekcodes(char *text, size_t length, size_t capacity);
// '^' and '_' followed by a letter run, a digit run, a run of Greek codes, a {group} or one
// item become raised or lowered smaller text. depth limits group nesting (-1: no limit);
// raise and scale are the state of the surrounding text (0 and 256 at top level). A mark
// that is the last item of the text has nothing to raise and is left as it is.
char *scriptcodes(char *text, size_t capacity, int depth, int raise, int scale);
size_t scriptcodes(char *text, size_t length, size_t capacity, int depth, int raise, int scale);
// greekcodes, then scriptcodes
char *compiletext(char *text, size_t capacity, int depth);
size_t compiletext(char *text, size_t length, size_t capacity, int depth);
// "#col=N#" and "#tab=N#"
char *tagcodes(char *text, size_t capacity);
size_t tagcodes(char *text, size_t length, size_t capacity);

// Length of a compiled text in bytes, its terminating zero not counted. Needs whole items.
size_t compiledlength(const char *text);
// Bytes of the whole items of text up to its end item or its end; an item cut by the end of
// the view is not counted.
size_t compiledlength(std::string_view text);

// ---------------------------------------------------------------------------------------
// [SECTION] Layout and drawing

// Library-wide drawing settings.
extern int text_screen_space;            // 1: begintext sets a pixel projection, y downwards
extern float text_scale_x, text_scale_y; // applied with glScalef after the projection
extern int text_blend_mode;              // 1 copy, 2 multiply, 3 add-screen (default), 4 alpha
extern float text_letter_spacing;        // fraction of the line height added after each glyph
extern unsigned char text_monospace;     // 1: every glyph advances by the reference advance
extern unsigned text_shader_program;     // non-zero: used while drawing; advances unrounded

// Every reading function has two forms. The std::string_view form reads no byte past the view's
// end: an item cut by it is neither measured nor drawn, and an end item (a zero lead byte)
// ends the text there too. The const char * form takes a zero-terminated text that needs
// whole items: the bytes of a command cut by the terminator would be read past it. (A glyph
// code whose high byte is the terminator ends the text, as no code above 255 has a zero high
// byte.) A null pointer is the text "NULL?".

// Width in pixels of a compiled text in the current font; line breaks add nothing.
float textwidth(const char *text);
float textwidth(std::string_view text);
// Width of the items that start in the first n bytes; n < 0 measures the whole text.
float textwidthn(const char *text, int n);
float textwidthn(std::string_view text, int n);

void begintext();
// Draws compiled text with its top-left corner at (x, y), wrapping at right and stopping below
// bottom (0: no limit); colour is 0x00RRGGBB. Returns the pen y after the last line.
float drawtext(float x, float y, float right, float bottom, const char *text, int colour);
float drawtext(float x, float y, float right, float bottom, std::string_view text, int colour);
void endtext();
float printtext(float x, float y, const char *text, int colour);
float printtext(float x, float y, std::string_view text, int colour);
float printtextwrapped(float x, float y, float right, float bottom, const char *text, int colour);
float printtextwrapped(float x, float y, float right, float bottom, std::string_view text, int colour);
float printtextboxed(int x, int y, const char *text, int colour, int box_colour);
float printtextboxed(int x, int y, std::string_view text, int colour, int box_colour);
