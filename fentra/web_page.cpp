// What the web page and the running program ask of each other: the setup in the page's
// address and the link to the current one, rings opened or dropped on the page, downloads, and
// what the browser tests read (distance round the ring, last step, mouse buttons, magnets, beam
// centre, ring name).
#include "fentra/web_page.h"

#include "Morvane/gfx_opengl.h"
#include "Morvane/gfx_opengl/web/platform_web.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/lattice_file.h"
#include "fentra/physics/ring_setup.h"
#include "fentra/physics/setup_string.h"
#include "fentra/physics/state.h"

#include <emscripten.h>

#include <cstdio>
#include <string>

static struct {
    std::string upload;   // "name\ntext" of a ring file the page hands over
    ring_file ring;       // read and waiting for the next frame
    bool ring_waiting;
    std::string answer;   // the last text handed back to the page
} page;

// clang-format off
EM_JS(int, page_fragment_size, (), {
    let text = location.hash;
    try { text = decodeURIComponent(text); } catch (e) {}
    return lengthBytesUTF8(text) + 1;
});
EM_JS(void, page_fragment, (char *buffer, int size), {
    let text = location.hash;
    try { text = decodeURIComponent(text); } catch (e) {}
    stringToUTF8(text, buffer, size);
});
EM_JS(void, page_note, (const char *text), {
    if (Module.show_note) Module.show_note(UTF8ToString(text));
});
// The page's services: the current setup's text, and a ring file's text handed to the program
// (its error, or "" when the ring loaded), and the running ring's name.
EM_JS(void, page_install_services, (), {
    Module.setup_text = () => UTF8ToString(Module._fentra_setup_text());
    Module.ring_name = () => UTF8ToString(Module._fentra_ring_name());
    Module.open_ring = (name, text) => {
        const whole = name + '\n' + text, bytes = lengthBytesUTF8(whole) + 1;
        stringToUTF8(whole, Module._fentra_upload_buffer(bytes), bytes);
        return UTF8ToString(Module._fentra_open_ring());
    };
});
// clang-format on

static void say(const std::string &line)
{
    fprintf(stderr, "%s\n", line.c_str());
    page_note(line.c_str());
}

void apply_page_link()
{
    page_install_services();
    int size = page_fragment_size();
    std::string text(size, '\0');
    page_fragment(text.data(), size);
    text.resize(text.find('\0'));
    if (text.empty() || text == "#") return;
    fentra_setup s;
    std::string error;
    if (parse_setup(text, &s, &error) && s.lattice == setup_ring)
        error = "setup: lattice=ring needs a ring: open one with \"Open ring...\"";
    if (!error.empty()) return say("Fentra: the link's setup is not used: " + error);
    apply_setup(s);
}

void take_opened_ring()
{
    if (!page.ring_waiting) return;
    page.ring_waiting = false;
    use_ring_in_place_of_kora(page.ring);
    sim.kora_lattice = true;
    sim.beam_made_for_kora = false;
    sim.fodo_cell = false;
}

void offer_written_file(const char *name, const char *type) { offer_file_download(name, name, type); }

extern "C" {
EMSCRIPTEN_KEEPALIVE double fentra_ring_position() { return sim.ring_position; }
EMSCRIPTEN_KEEPALIVE double fentra_step_length() { return sim.step_length; }
EMSCRIPTEN_KEEPALIVE unsigned fentra_mouse_buttons() { return mouse_buttons; }
// The magnets of the last frame: 0 steering, 1 quadrupoles, 2 sextupoles, 3 octupoles, 4 solenoid.
EMSCRIPTEN_KEEPALIVE double fentra_magnet(int which)
{
    const double m[] = {magnets.steering, magnets.quad_strength, magnets.sextupole,
                        magnets.octupole, magnets.solenoid};
    return which >= 0 && which < 5 ? m[which] : 0;
}
// The beam's mean position in metres: 0 horizontal, 1 vertical.
EMSCRIPTEN_KEEPALIVE double fentra_beam_centre(int axis)
{
    const double *p = axis ? beam_y : beam_x;
    double sum = 0;
    for (int i = 0; i < sim.particle_count; i++) sum += p[i];
    return sim.particle_count ? sum / sim.particle_count : 0;
}
// "Ring <name>" while a ring read from a file runs, else "".
EMSCRIPTEN_KEEPALIVE const char *fentra_ring_name() { return sim.kora_lattice ? lattice_ring_name : ""; }

EMSCRIPTEN_KEEPALIVE const char *fentra_setup_text()
{
    page.answer = format_setup(current_setup());
    return page.answer.c_str();
}

EMSCRIPTEN_KEEPALIVE char *fentra_upload_buffer(int bytes)
{
    page.upload.assign(bytes, '\0');
    return page.upload.data();
}

// Reads the ring handed over in the upload buffer; it goes in at the next frame. On an error
// the running ring stays and the page shows the error.
EMSCRIPTEN_KEEPALIVE const char *fentra_open_ring()
{
    size_t end = page.upload.find('\0'), newline = page.upload.find('\n');
    if (newline > end) newline = end;
    std::string name = page.upload.substr(0, newline);
    ring_file ring = read_ring_text(page.upload.substr(newline + 1, end - newline - 1), name);
    page.upload.clear();
    for (const std::string &note : ring.notes) fprintf(stderr, "%s\n", note.c_str());
    if (!ring.error.empty()) {
        say(ring.error);
        return (page.answer = ring.error).c_str();
    }
    say("Ring " + ring.name + " opened from " + name);
    page.ring = ring;
    page.ring_waiting = true;
    return (page.answer = "").c_str();
}
}
