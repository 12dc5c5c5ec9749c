// Fentra's spine: start-up in its fixed order, the frame in its fixed order (with the restart
// after a beam made mid-run and the help screen's wait), and the loop.
#include "fentra/app.h"

#include "Morvane/bitmapfonts.h"
#include "Morvane/gfx_opengl.h"
#include "Morvane/report.h"
#include "carried_data.h"
#include "fentra/physics/beam.h"
#include "fentra/views/beam_view.h"
#include "fentra/physics/collective.h"
#include "fentra/command_line.h"
#include "fentra/controls.h"
#include "fentra/views/hud.h"
#include "fentra/physics/lattice.h"
#include "fentra/physics/bunch_export.h"
#include "fentra/physics/ring_setup.h"
#include "fentra/physics/setup_string.h"
#include "fentra/physics/tracking.h"
#include "fentra/physics/optics_figures.h"
#include "fentra/views/optics_panel.h"
#include "fentra/views/views.h"
#ifdef __EMSCRIPTEN__
#include "fentra/web_page.h"
#endif

#include <GL/gl.h>

#include <cstring>
#include <malloc.h>
#include <unistd.h>

frame_record last_frame;

// ---------------------------------------------------------------------------------------
// [SECTION] Start-up

// Makes the directory of the program file current, so the lattice file, logs and screenshots
// land beside the program.
static void enter_program_directory()
{
    char path[500];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    path[n > 0 ? n : 0] = 0;
    char *slash = strrchr(path, '/');
    if (slash) *slash = 0;
    if (chdir(path) != 0) {
        // not checked: the program carries on where it was started
    }
}

void start_simulation()
{
    // The GL driver takes about a megabyte of scratch memory for every frame's vertices and
    // gives it back at the frame's end; without a high trim threshold the heap would shrink
    // and grow again every frame, paying a page fault for every page it touches.
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_MMAP_THRESHOLD, 16 << 20);
    loadfontdata(data_ncgibig_fnt, data_ncgibig_fnt_size, "ncgibig");
    loadfontdata(data_ncgismall_fnt, data_ncgismall_fnt_size, "ncgismall");
    loadfontdata(data_captionfont_fnt, data_captionfont_fnt_size, "captionfont");
    enter_program_directory();
    // The lattice is written at every start, so the file always holds the built-in lattice.
    write_builtin_lattice("kora_sp.txt");
    read_lattice("kora_sp.txt");
    reset_simulation_state();   // superperiod length from the table, empty spark list
    if (launch.has_ring) use_ring_in_place_of_kora(launch.ring);
    sim.glow_texture = make_glow_texture(32);
    sim.touch_mode = touch_capability();
    sim.previous_mouse_x = mouse_x;
    sim.previous_mouse_buttons = (int)mouse_buttons;
    if (screen_width == 0)
        fatal_error("fentra", 391,
                    "GRAPHICS() macro not called at LOOP start, or no resolution specified", 0);
    pump_events();
}

int fentra_main()
{
    allocate_particles();
    texture_unsized_formats = 1;
    if (!graphics_open(0, 0, "Fentra", nullptr)) return 0;
    start_simulation();
    if (launch.has_setup) apply_setup(launch.setup);
#ifdef __EMSCRIPTEN__
    apply_page_link();
#endif
    while (!run_frame()) {
    }
    return 0;
}

// ---------------------------------------------------------------------------------------
// [SECTION] The frame

// Where the optics panel goes on this screen, its lines in "ncgismall".
static optics_panel_layout panel_layout()
{
    selectfont("ncgismall");
    int h = current_line_height + 2;   // the glyphs fill the line: two pixels apart
    selectdefaultfont();
    return layout_optics_panel(screen_width, screen_height, sim.show_graphs, h);
}

// Ctrl+E: the bunch as "Fentra_NNNNN.csv", numbered as the screenshots are, beside them; the
// console says where. Returns 1 when written.
static int export_bunch_now()
{
    char name[300], directory[4096], message[4500];
    screenshot_name(name, sizeof name, "Fentra", time_now());
    char *dot = strrchr(name, '.');
    snprintf(dot, sizeof name - (size_t)(dot - name), ".csv");
    std::string error;
    if (!export_bunch(name, format_setup(current_setup()), &error)) {
        report_inner("fentra", __LINE__, REPORT_WARNING, error.c_str(), 1);
        return 0;
    }
    if (!getcwd(directory, sizeof directory)) directory[0] = 0;
    size_t d = strlen(directory);
    snprintf(message, sizeof message, "Bunch written to %s%s%s", directory, d && directory[d - 1] == '/' ? "" : "/", name);
    report_inner("fentra", __LINE__, REPORT_MESSAGE, message, 1);
#ifdef __EMSCRIPTEN__
    offer_written_file(name, "text/csv");   // a page's files reach the user as downloads
#endif
    return 1;
}

// The top of the frame: view, clock, magnets, pole pictures, the KORA element with the ring
// map, F1 and the speed keys, then beam creation. Returns false when a beam made mid-run
// restarts the frame from here; nothing drawn so far is presented on its own.
static bool frame_top(view_geometry *v)
{
    *v = compute_view_geometry(screen_width, screen_height, sim.show_graphs);
    if (sim.optics_panel) *v = view_beside_panel(*v, panel_layout());
    sim.frame_start_time = time_now();
    read_magnet_keys();
    draw_pole_pictures(*v, magnets);
    sim.component_index = -1;
    sim.distance_to_element_end = 1e20;
    if (sim.kora_lattice) {
        enter_current_element();
        draw_ring_view(0x800080, 0x800000, 0x008080, 0xFFFFFF, sim.ring_position);
        draw_kora_lines();
    }
    if (key_pressed(VK_F1)) help_screen();
    speed_keys();
    beam_outcome made = create_beam_if_asked(pressed_beam_keys());
    if (made.kind != beam_none) last_frame.beam_kind = made.kind;
    if (!made.restart_frame) return true;
    // The key that made the beam must not be seen pressed again in the restarted pass.
    pump_events();
    last_frame.restarts++;
    return false;
}

// The beam pipe, the particles, the highlight, the scraper, the graphs and the sparks.
static void draw_beam_view(const view_geometry &v)
{
    // Everything is drawn flat at depth 0, where the depth test always passes: switching it
    // off changes no pixel and spares the fill of the pipe and the particles its work.
    glDisable(GL_DEPTH_TEST);
    draw_beam_pipe(v.centre_x, v.centre_y, v.pixels_per_metre);
    beam_frame f = {v.centre_x, v.centre_y, v.pixels_per_metre, sim.step_length,
                    sim.momentum_spread};
    draw_beam_particles(f, sim.particle_count, sim.luminous, sim.glow_texture);
    if (sim.highlight) draw_particle_highlight(f);
    if (sim.scraper_on) {
        draw_scraper(v);
        move_scraper(key_held(VK_LEFT), key_held(VK_RIGHT));
    }
    glEnable(GL_DEPTH_TEST);
    if (sim.show_graphs)
        draw_phase_graphs(beam_x, beam_y, beam_xp, beam_yp, beam_momentum, sim.particle_count,
                          sim.highlight, v.pixels_per_metre, 2 * v.pixels_per_metre,
                          sim.momentum_spread);
    update_and_draw_sparks(&sim.spark_list);
}

// After the top: momentum spread, lattices, toggles, space charge and tracking; the drawing
// and the text overlay; the screenshot; present, pace, the next step and the pump; last, the
// lattice chosen this frame becomes current.
int run_frame()
{
    last_frame = frame_record{};
    last_frame.beam_kind = beam_none;
#ifdef __EMSCRIPTEN__
    take_opened_ring();
#endif
    view_geometry v;
    while (!frame_top(&v)) {
    }
    last_frame.view = v;
    if (key_pressed('D')) toggle_momentum_spread();
    lattice_outcome lattice = lattice_keys();
    last_frame.fodo_beam = lattice.fodo_beam;
    toggle_keys();
    if (sim.space_charge && sim.particle_count > 0) space_charge_kick();
    track_sums sums = {0, 0};
    if (sim.particle_count > 0) sums = track_step();
    // The panel's figures follow the beam only while it is shown; showing it starts anew.
    if (sim.optics_panel) observe_beam_optics(footprint_setup_now(magnets_from_keys(held_magnet_keys())));
    else footprint.running = false;

    draw_beam_view(v);
    last_frame.luminosity = draw_text_overlay(sums);
    if (sim.optics_panel) draw_optics_panel(panel_layout());
    if (screenshot_keys_pressed()) {
        save_screenshot("Fentra");
        last_frame.screenshot = 1;
    }
    if (bunch_export_keys_pressed()) last_frame.bunch_export = export_bunch_now();
    sim.previous_mouse_x = mouse_x;
    sim.previous_mouse_buttons = (int)mouse_buttons;
    end_frame(0);
    pace_frame(sim.frame_start_time);
    advance_along_ring(time_now() - sim.frame_start_time, slow_motion_held());
    if (pump_events() || quit_keys_held()) return 1;
    sim.beam_made_for_kora = sim.kora_lattice;
    sim.kora_lattice = lattice.kora_next;
    return 0;
}
