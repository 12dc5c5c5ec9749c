// The frame driven from tests: keyboard snapshots go in through the pump's snapshot source,
// the clock is a counter of 1/256 s a reading, and the state and the saved pictures that come
// out are checked. Runs in a 640 x 480 window under Xvfb.
#include "gl_fixture.h"

#include "Morvane/random.h"
#include "fentra/controls.h"
#include "fentra/physics/beam.h"
#include "fentra/physics/footprint.h"
#include "fentra/views/phase_graphs.h"

#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>

static unsigned char held_keys[256];
static std::deque<std::vector<int>> queued_snapshots;   // taken one a pump before held_keys

static void set_held(const std::vector<int> &keys) { memset(held_keys, 0, 256); for (int k : keys) held_keys[k] = 0x80; }

static void scripted_keyboard(unsigned char snapshot[256])
{
    if (!queued_snapshots.empty()) set_held(queued_snapshots.front()), queued_snapshots.pop_front();
    memcpy(snapshot, held_keys, 256);
}

static double clock_reading;
static double counting_clock() { return clock_reading += 1.0 / 256; }   // sums stay exact

// The keys held from now on reach the program through a pump, as in a run; then one frame
// runs. Returns what it returned (1 = quit).
static int frame(const std::vector<int> &keys = {}) { return set_held(keys), pump_events(), run_frame(); }

static testing::Environment *const environment = testing::AddGlobalTestEnvironment(
    new views_gl::window(640, 480, views_gl::program, [] {
        keyboard_snapshot_source = scripted_keyboard;
        time_now = counting_clock;
    }));

struct Frame : testing::Test {
    void SetUp() override
    {
        unsigned glow = sim.glow_texture;   // made once at start-up
        reset_simulation_state();
        sim.glow_texture = glow;
        phase_records = {0, 0, 0, 0};   // kept by the program across beams
        random15_restart();
        queued_snapshots.clear();
        frame();   // the default beam; nothing held from here on
    }
};

TEST_F(Frame, KoraKeepsTheBeamOneFrameThenMakesItsKVBeamAndLeavingSetsSpeedOne)
{
    // After each key: the kind of beam made, restarts, KORA on, the beam made for KORA, the speed.
    const struct { int key; std::tuple<int, int, bool, bool, double> outcome; } steps[] = {
        {'I', {beam_none, 0, true, false, 1}},     // KORA is current from the end of the frame
        {0, {beam_kv, 1, true, true, 1}},
        {VK_ADD, {beam_none, 0, true, true, 2}},   // the beam is made once only
        {VK_SUBTRACT, {beam_none, 0, true, true, 1}},
        {'I', {beam_none, 0, false, true, 1}},     // leaving KORA sets speed one
    };
    for (const auto &s : steps) {
        frame(s.key ? std::vector<int>{s.key} : std::vector<int>{});
        EXPECT_EQ(std::make_tuple(last_frame.beam_kind, last_frame.restarts, sim.kora_lattice, sim.beam_made_for_kora,
                                  sim.simulation_speed), s.outcome) << "key " << s.key;
    }
}

TEST_F(Frame, KeysForBeamsHelpSlowMotionAndQuitting)
{
    sim.peak_luminosity = 1e40;
    frame({'G'});
    EXPECT_EQ(std::make_tuple(last_frame.beam_kind, last_frame.restarts, sim.peak_luminosity),
              std::make_tuple((int)beam_gaussian, 1, last_frame.luminosity)) << "the peak restarts";
    EXPECT_EQ(sim.ring_position, 1e-6 + sim.step_length) << "restarted at 1e-6, then one step";
    // The help screen's pumps: F1 still down, then up, then Space, which makes a beam.
    queued_snapshots = {{VK_F1}, {}, {VK_SPACE}};
    int quit = frame({VK_F1});
    EXPECT_EQ(std::make_tuple(quit, queued_snapshots.empty(), last_frame.beam_kind), std::make_tuple(0, true, (int)beam_game));

    // Readings are 1/256 s apart: the step is 1024 m for each reading the frame took, with no
    // limit outside KORA.
    sim.simulation_speed = 262144;
    frame();
    double whole = sim.step_length;
    EXPECT_EQ(whole / 1024, std::floor(whole / 1024));
    frame({VK_SHIFT});
    EXPECT_EQ(sim.step_length, 0.2 * whole) << "slow motion";
    EXPECT_EQ(frame({'Q'}) + frame({VK_ESCAPE}), 2) << "Q and Escape quit";
}

// Ctrl+E writes the live bunch beside the screenshots as "Fentra_NNNNN.csv": a header, the
// column names and a row for each live particle; E alone writes nothing.
TEST_F(Frame, CtrlEWritesTheBunchAsCsv)
{
    frame({'E'});
    EXPECT_EQ(last_frame.bunch_export, 0);
    frame();
    frame({VK_CONTROL, 'E'});
    EXPECT_EQ(last_frame.bunch_export, 1);
    int files = 0;
    for (const auto &e : std::filesystem::directory_iterator(".")) {
        std::string name = e.path().filename().string();
        if (!name.starts_with("Fentra_") || !name.ends_with(".csv")) continue;
        files++;
        EXPECT_EQ(name.size(), 16u) << name;
        std::ifstream in(e.path());
        std::string line, columns;
        int rows = 0;
        while (std::getline(in, line))
            if (line.starts_with("#")) continue;
            else if (columns.empty()) columns = line;
            else rows++;
        EXPECT_EQ(std::make_pair(columns, rows), std::make_pair(std::string("x,xp,y,yp,delta,Qx,Qy"), sim.particle_count));
        std::filesystem::remove(e.path());
    }
    EXPECT_EQ(files, 1);
}

// The frame as Ctrl+S saves it (a BMP: no image converter on PATH), as RGB rows from the top.
static std::vector<unsigned char> saved_frame(std::vector<int> keys)
{
    keys.insert(keys.end(), {VK_CONTROL, 'S'});
    std::string path = getenv("PATH");
    setenv("PATH", "/nonexistent", 1);
    frame(keys);
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(last_frame.screenshot, 1);
    std::vector<unsigned char> bmp, rgb((size_t)640 * 480 * 3);
    for (const auto &e : std::filesystem::directory_iterator("."))
        if (e.path().filename().string().starts_with("Fentra_")) {
            std::ifstream in(e.path(), std::ios::binary);
            bmp.assign(std::istreambuf_iterator<char>(in), {});
            std::filesystem::remove(e.path());
        }
    EXPECT_EQ(bmp.size(), 54 + rgb.size()) << "640 x 480, 24 bits";
    for (size_t i = 0; i < rgb.size() && bmp.size() == 54 + rgb.size(); i++)   // BGR, bottom up
        rgb[i] = bmp[54 + ((479 - i / 1920) * 640 + i % 1920 / 3) * 3 + 2 - i % 3];
    return rgb;
}

// Each scene from a fresh start: the default beam with its heads-up display under magnets
// (and Ctrl+S leaving the scraper off); the KORA ring with the map, the graphs, momentum
// colours, the highlight, the scraper and glowing particles; the game beam squeezed by the
// quadrupoles with collision sparks of every kind.
TEST_F(Frame, ScenesMatchTheirReferencePictures)
{
    frame({'5'});
    EXPECT_TRUE(matches_reference("scene_default", saved_frame({'4', '6', '8', '2', 'O'}), 640, 480));

    SetUp();
    frame({'I'});
    frame();   // the K-V beam made for KORA restarts this frame
    for (int key : {'A', 'D', 'H', 'S', 'L'}) frame({key});
    for (int k = 0; k < 3; k++) frame();
    EXPECT_TRUE(matches_reference("scene_kora", saved_frame({}), 640, 480));

    // The optics panel in KORA beside the beam view moved aside, after about 30 m of ring.
    SetUp();
    frame({'I'});
    frame();
    frame({'T'});
    sim.simulation_speed = 8;
    for (int k = 0; k < 300; k++) frame();
    EXPECT_TRUE(matches_reference("scene_optics_panel", saved_frame({}), 640, 480));
    EXPECT_GT(footprint.shown, 9000) << "the footprint is drawn";

    SetUp();
    for (spark s : {spark{-80, -40, 0, -2, 0}, {0, -10, 3, -2, 1}, {80, 20, 6, -2, 2}})   // from the centre, pixels
        growarray_append(&sim.spark_list, &s);
    frame({'5', VK_RIGHT});
    EXPECT_TRUE(matches_reference("scene_sparks", saved_frame({'5', '7', '9', '3', '0'}), 640, 480));
}
