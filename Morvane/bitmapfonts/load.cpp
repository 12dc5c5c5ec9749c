// Morvane bitmap text: loading a glyph-record block into a font, building its texture (RGBA from
// the palette, mipmaps, digits retouched for legibility when small), and loading font files.
#include <GL/gl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Morvane/bitmapfonts/fonts_internal.h"
#include "Morvane/gfx_opengl.h"
#include "Morvane/palette.h"
#include "Morvane/report.h"

static const char source_name[] = "Morvane/bitmapfonts";

// Glyph pixels into an RGBA image laid out as packed. Index 255 is transparent; with mask set
// every glyph pixel is white and its brightness becomes the alpha.
static unsigned char *glyph_image(const unsigned char *bytes, int records, const BitmapFont *f,
                                  int mask) {
    float red[256], green[256], blue[256];
    buildpalette(red, green, blue);
    unsigned char *image = (unsigned char *)calloc((size_t)f->textureWidth * f->textureHeight, 4);
    size_t offset = 0;
    for (int i = 0; i < records; i++) {
        int w = bytes[offset], h = bytes[offset + 1];
        const unsigned char *pixel = bytes + offset + 2;
        offset += 2 + (size_t)w * h;
        for (int row = 0; row < h; row++) {
            unsigned char *texel = image + ((size_t)(f->glyphY[i] + row) * f->textureWidth + f->glyphX[i]) * 4;
            for (int col = 0; col < w; col++, texel += 4, pixel++) {
                int k = *pixel;
                if (mask) {
                    texel[0] = texel[1] = texel[2] = 255;
                    texel[3] = k == 255 ? 0 : (int)((red[k] + green[k] + blue[k]) * 85.1);
                } else if (k != 255) {
                    texel[0] = (int)(red[k] * 255.9);
                    texel[1] = (int)(green[k] * 255.9);
                    texel[2] = (int)(blue[k] * 255.9);
                    texel[3] = 255;
                }
            }
        }
    }
    return image;
}

// Mipmapping fades thin strokes; digits (and the Greek codes) are brightened in each smaller
// level by normalising every glyph to its brightest byte and lifting it with a 0.4 gamma.
static void retouch_mipmaps(const BitmapFont *f) {
    unsigned char lift[256];
    for (int i = 0; i < 256; i++) lift[i] = (unsigned char)(int)(255.9 * pow(i / 255.9, 0.4));
    for (int level = 1;; level++) {
        GLint w = 0, h = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &w);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &h);
        if (w <= 0 || h <= 0) break;
        unsigned char *image = (unsigned char *)malloc((size_t)w * h * 4);
        glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, image);
        for (int g = 1; g < font_slots; g++) {
            if (!((g >= '0' && g <= '9') || (g >= 256 && g <= 383))) continue;
            int y0 = f->glyphY[g] >> level, y1 = (f->glyphY[g] + f->lineHeight) >> level;
            int x0 = f->glyphX[g] >> level, x1 = x0 + (f->glyphWidth[g] >> level);
            if (y1 > h) y1 = h;
            if (x1 > w) x1 = w;
            float brightest = 0.001f;
            for (int y = y0; y < y1; y++)
                for (int b = x0 * 4; b < x1 * 4; b++)
                    if (image[(size_t)y * w * 4 + b] > brightest) brightest = image[(size_t)y * w * 4 + b];
            for (int y = y0; y < y1; y++)
                for (int b = x0 * 4; b < x1 * 4; b++) {
                    unsigned char &byte = image[(size_t)y * w * 4 + b];
                    byte = lift[(int)(byte * 255.4 / brightest)];
                }
        }
        glTexImage2D(GL_TEXTURE_2D, level, 4, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, image);
        free(image);
        if (w == 1 && h == 1) break;
    }
}

void loadfontmask(const unsigned char *bytes, size_t count, const char *name, int mask) {
    BitmapFont *f = (BitmapFont *)calloc(1, sizeof(BitmapFont));
    f->name = strdup(name);
    f->padding = 0;

    GLint maxtx = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxtx);
    if (maxtx > 2048) maxtx = 2048;
    int records = packfontdata(bytes, count, maxtx, f);
    if (maxtx < f->textureHeight) {
        char message[400];
        snprintf(message, sizeof message, "Font '%s' required texture of size %dx%d but maxtx=%d",
                 name, f->textureWidth, f->textureHeight, maxtx);
        fatal_error(source_name, __LINE__, message, 1);
    }

    unsigned char *image = glyph_image(bytes, records, f, mask);
    glGenTextures(1, &f->texture);
    glBindTexture(GL_TEXTURE_2D, f->texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_LOD_BIAS, -0.5f);   // a little sharper when small
    upload_texture_level(GL_TEXTURE_2D, 0, 4, f->textureWidth, f->textureHeight, GL_UNSIGNED_BYTE, image);
    generate_mipmaps(GL_TEXTURE_2D);
    free(image);
    retouch_mipmaps(f);

    f->style = fontstyle{f, 1.0f, 1.0f, 0.0f, 0.0f, font_slots, 0};
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &f->textureWidth);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &f->textureHeight);
    f->referenceAdvance = f->glyphWidth[(unsigned char)'C'] + 1;
    registerfont(f);
}

void loadfontdata(const unsigned char *bytes, size_t count, const char *name) {
    loadfontmask(bytes, count, name, 0);
}

void loadfont(const char *path, const char *name) {
    FILE *file = fopen(path, "rb");
    long size = 0;
    if (file) {
        fseek(file, 0, SEEK_END);
        size = ftell(file);
        fseek(file, 0, SEEK_SET);
    }
    if (size <= 0) {
        if (file) fclose(file);
        char message[400];
        snprintf(message, sizeof message, "loadfont: '%s' not found", path);
        fatal_error(source_name, __LINE__, message, 1);
    }
    unsigned char *bytes = (unsigned char *)malloc(size);
    size_t got = fread(bytes, 1, size, file);
    fclose(file);
    loadfontdata(bytes, got, name);
    free(bytes);
}
