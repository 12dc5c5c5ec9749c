// Morvane bitmap text: drawing compiled text as textured quads in immediate mode, in a
// begintext / drawtext / endtext cycle that saves and restores the GL state it touches.
#include <SDL.h>
#include <GL/gl.h>

#include <cctype>
#include <cstdint>

#include "Morvane/bitmapfonts/fonts_internal.h"
#include "Morvane/gfx_opengl.h"

static struct {
    void (*use_program)(unsigned program);   // looked up once, when a text shader is first used
    int looked_up;
} draw;

static void use_program(unsigned program) {
    if (!draw.looked_up) {
        draw.use_program = (void (*)(unsigned))SDL_GL_GetProcAddress("glUseProgram");
        draw.looked_up = 1;
    }
    if (draw.use_program) draw.use_program(program);
}

static void set_blend(int mode) {
    switch (mode) {
    case 1: glBlendFunc(GL_ONE, GL_ZERO); break;
    case 2: glBlendFunc(GL_DST_COLOR, GL_ONE_MINUS_SRC_ALPHA); break;
    case 3: glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_COLOR); break;
    case 4: glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA); break;
    default: break;
    }
}

void begintext() {
    glPushAttrib(GL_TEXTURE_BIT | GL_COLOR_BUFFER_BIT | GL_ENABLE_BIT | GL_TRANSFORM_BIT);
    // The window layer's flat overlay: pixel projection with (0, 0) at the top-left corner,
    // no depth test and no depth writes.
    if (text_screen_space) overlay_begin();
    glScalef(text_scale_x, text_scale_y, 1.0f);
    glEnable(GL_BLEND);
    glDisable(GL_LIGHTING);
    set_blend(text_blend_mode);
    glEnable(GL_TEXTURE_2D);
    if (current_font) glBindTexture(GL_TEXTURE_2D, current_font->texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    if (text_shader_program) use_program(text_shader_program);
    glBegin(GL_QUADS);
}

void endtext() {
    glEnd();
    if (text_shader_program) use_program(0);
    if (text_screen_space) overlay_end();
    glPopAttrib();
}

static void glyph_quad(const BitmapFont *f, int c, float x, float y, float sx, float sy) {
    const BitmapFont *base = f->style.base;
    float w = base->glyphWidth[c] - 2 * base->padding;
    float h = base->lineHeight - 2 * base->padding;
    float q = base->lineHeight * base->padding / h;   // the border a padded glyph carries round it
    if (text_monospace) x += (current_reference_advance - w) / 2;
    float s0 = (float)f->glyphX[c] / f->textureWidth;
    float s1 = (float)(f->glyphX[c] + f->glyphWidth[c]) / f->textureWidth;
    float t0 = (float)f->glyphY[c] / f->textureHeight;
    float t1 = t0 + (float)f->lineHeight / f->textureHeight;
    glTexCoord2f(s0, t0);
    glVertex2f(x - q * sx, y - q * sy);
    glTexCoord2f(s1, t0);
    glVertex2f(x + w * sx + q * sx, y - q * sy);
    glTexCoord2f(s1, t1);
    glVertex2f(x + w * sx + q * sx, y + h * sy + q * sy);
    glTexCoord2f(s0, t1);
    glVertex2f(x - q * sx, y + h * sy + q * sy);
}

// Bytes of the word that starts text, which holds whole items only: its items up to the next
// white space or the end.
static size_t word_length(std::string_view text) {
    size_t n = 0;
    while (n < text.size() && !isspace((unsigned char)text[n])) n += text_item_size(text.data() + n);
    return n;
}

float drawtext(float x, float y, float right, float bottom, std::string_view text, int colour) {
    text = text.substr(0, compiledlength(text));   // whole items only, up to an end item
    if (text.empty() || !current_font) return y;
    const BitmapFont *f = current_font;
    const BitmapFont *base = f->style.base;
    const fontstyle entry_style = current_style;
    glColor4ub((colour >> 16) & 255, (colour >> 8) & 255, colour & 255, 255);

    float start_x = x;
    int s = 256, lift = 0;   // script scale (1/256) and the pen's current raise in pixels
    for (size_t i = 0, next; i < text.size(); i = next) {
        const unsigned char *p = (const unsigned char *)text.data() + i;
        next = i + text_item_size(text.data() + i);
        float sx = f->style.scaleX * s / 256, sy = f->style.scaleY * s / 256;
        if (p[0] == 10) {
            x = start_x;
            y += whole_pixels(base->lineHeight * sy + 0.5) + 1;
            continue;
        }
        if (p[0] == 5) {
            uint32_t payload = p[2] | p[3] << 8 | p[4] << 16 | (uint32_t)p[5] << 24;
            if (p[1] == text_command_colour) {
                glColor4ub((payload >> 16) & 255, (payload >> 8) & 255, payload & 255, 255);
            } else if (p[1] == text_command_pen_x) {
                x = (float)(int32_t)payload;
            } else if (p[1] == text_command_script || p[1] == 254) {
                s = payload & 0xFFFF;
                int raise = (int16_t)(payload >> 16);
                int d = whole_pixels(base->lineHeight * f->style.scaleY * raise + 128) / 256;
                y += lift - d;
                lift = d;
                glEnd();
                fontstyle key = entry_style;
                key.scaleX *= s / 256.0f;
                key.scaleY *= s / 256.0f;
                usefont(&key);
                glBegin(GL_QUADS);
            }
            continue;
        }
        int c = p[0] == 2 ? p[1] * 256 + p[2] : p[0];
        if (c == ' ') {
            if (right != 0) {
                std::string_view word = text.substr(next);
                if (right < x + textwidth(word.substr(0, word_length(word)))) {
                    y += 1 + (base->lineHeight - 2 * base->padding) * sy;
                    if (bottom != 0 && y > bottom) break;
                    x = start_x;
                    continue;
                }
            }
            x += text_advance(f, c, s);
            continue;
        }
        if (c < font_slots) glyph_quad(f, c, x, y, sx, sy);
        x += text_advance(f, c, s);
        // A word longer than the line is broken after the glyph that crosses the right limit.
        if (right != 0 && (next == text.size() || text[next] != ' ') && right < x) {
            y += f->lineHeight + 1;
            if (bottom != 0 && y > bottom) break;
            x = start_x;
        }
    }
    usefont(&entry_style);
    return y;
}

float drawtext(float x, float y, float right, float bottom, const char *text, int colour) {
    return drawtext(x, y, right, bottom, terminated_view(text), colour);
}

float printtextwrapped(float x, float y, float right, float bottom, std::string_view text, int colour) {
    begintext();
    float end_y = drawtext(x, y, right, bottom, text, colour);
    endtext();
    return end_y;
}

float printtext(float x, float y, std::string_view text, int colour) {
    return printtextwrapped(x, y, 0, 0, text, colour);
}

float printtextboxed(int x, int y, std::string_view text, int colour, int box_colour) {
    float w = textwidth(text);
    glPushAttrib(GL_ENABLE_BIT);
    glDisable(GL_TEXTURE_2D);
    glColor3ub((box_colour >> 16) & 255, (box_colour >> 8) & 255, box_colour & 255);
    glBegin(GL_QUADS);
    glVertex2f(x, y);
    glVertex2f(x + w, y);
    glVertex2f(x + w, y + current_line_height);
    glVertex2f(x, y + current_line_height);
    glEnd();
    glPopAttrib();
    return printtext(x, y, text, colour);
}

float printtextwrapped(float x, float y, float right, float bottom, const char *text, int colour) {
    return printtextwrapped(x, y, right, bottom, terminated_view(text), colour);
}

float printtext(float x, float y, const char *text, int colour) {
    return printtext(x, y, terminated_view(text), colour);
}

float printtextboxed(int x, int y, const char *text, int colour, int box_colour) {
    return printtextboxed(x, y, terminated_view(text), colour, box_colour);
}
