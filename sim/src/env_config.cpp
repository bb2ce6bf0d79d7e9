// The bus as a user configures it: ORU_VSENSOR_* environment variables.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "event_log.h"
#include "identity_text.h"
#include "schedule.h"
#include "vsensor/vsensor.h"

namespace vsensor {

namespace {

const char* env(const char* name) {
    const char* v = std::getenv(name);
    return v && *v ? v : nullptr;
}

void warn(const std::string& text) { std::fprintf(stderr, "[vsensor] %s\n", text.c_str()); }

std::vector<std::string> split(const std::string& s, char sep) {
    std::vector<std::string> out;
    std::stringstream in(s);
    std::string item;
    while (std::getline(in, item, sep))
        if (!item.empty()) out.push_back(item);
    return out;
}

// The pattern model's scenes, kept for protocol tests and recorded outputs.
bool parse_pattern_scene(const std::string& name, Scene* scene) {
    if (name == "white")
        *scene = Scene::FlatWhite;
    else if (name == "led")
        *scene = Scene::LedLine;
    else if (name == "lamp")
        *scene = Scene::BroadLamp;
    else
        return false;
    return true;
}

// Fault items are split at commas, but a scene may hold commas of its own
// ("0:scene=led:610,fwhm=18@2s"): a piece that does not start with
// "<sensor>:" continues the item before it.
std::vector<std::string> fault_items(const std::string& text) {
    std::vector<std::string> items;
    for (const std::string& piece : split(text, ',')) {
        const size_t colon = piece.find(':');
        const bool starts_item =
            colon != std::string::npos && colon > 0 && piece.find_first_not_of("0123456789") == colon;
        if (!starts_item && !items.empty())
            items.back() += "," + piece;
        else
            items.push_back(piece);
    }
    return items;
}

unsigned fault_bit(const std::string& name) {
    if (name == "open-access") return kFaultOpenAccess;
    if (name == "descriptor") return kFaultDescriptor;
    if (name == "claim") return kFaultClaim;
    if (name == "no-echo") return kFaultNoEcho;
    if (name == "control-timeout") return kFaultControlTimeout;
    if (name == "stall") return kFaultStreamStall;
    if (name == "bulk-error") return kFaultBulkError;
    if (name == "unplug") return kFaultUnplugOnStream;
    return 0;
}

// "500ms", "3s", "1.5s" -> milliseconds; -1 when malformed.
long parse_delay(const std::string& text) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    const std::string unit = end ? end : "";
    if (end == text.c_str() || v < 0 || (unit != "ms" && unit != "s")) return -1;
    return static_cast<long>(unit == "s" ? v * 1000 + 0.5 : v + 0.5);
}

struct FaultPlan {
    std::vector<unsigned> faults;  // per sensor number, from the start
    std::vector<std::string> scenes;  // per sensor number, from the start ("" = as configured)
    std::vector<detail::TimedAction> timed;  // `dev` still a sensor number
};

// "0:stall,1:claim,1:unplug@3s,1:replug@5s" -> faults per sensor number and
// timed entries (unplug, replug or any fault name after a delay).
FaultPlan parse_faults(const char* text, int sensors) {
    FaultPlan plan{std::vector<unsigned>(static_cast<size_t>(sensors), kFaultNone),
                   std::vector<std::string>(static_cast<size_t>(sensors)), {}};
    if (!text) return plan;
    for (const std::string& item : fault_items(text)) {
        const size_t colon = item.find(':');
        const size_t at = item.find('@');
        const std::string name =
            colon == std::string::npos ? "" : item.substr(colon + 1, at == std::string::npos ? at : at - colon - 1);
        const int n = colon == std::string::npos ? -1 : std::atoi(item.substr(0, colon).c_str());
        const long delay = at == std::string::npos ? 0 : parse_delay(item.substr(at + 1));
        detail::TimedAction a;
        a.kind = name == "unplug"   ? detail::TimedAction::Unplug
                 : name == "replug" ? detail::TimedAction::Replug
                                    : detail::TimedAction::Fault;
        a.fault = fault_bit(name);
        a.dev = n;
        a.at = std::chrono::milliseconds(delay);
        const bool timed = at != std::string::npos;
        if (name.rfind("scene=", 0) == 0) {
            a.kind = detail::TimedAction::Scene;
            a.scene = name.substr(6);
            std::vector<double> spectrum;
            std::string why;
            if (n < 0 || n >= sensors || delay < 0 || !parse_spectrum(a.scene, &spectrum, &why))
                warn("ignoring fault '" + item + "'" + (why.empty() ? "" : ": " + why));
            else if (timed)
                plan.timed.push_back(a);
            else
                plan.scenes[static_cast<size_t>(n)] = a.scene;
            continue;
        }
        if (n < 0 || n >= sensors || delay < 0 || (!a.fault && !(timed && a.kind == detail::TimedAction::Replug))) {
            warn("ignoring fault '" + item + "'");
        } else if (timed) {
            plan.timed.push_back(a);
        } else {
            plan.faults[static_cast<size_t>(n)] |= a.fault;
        }
    }
    return plan;
}

// ORU_VSENSOR_PATTERN: model (default), counter, or constant:<value>.
void apply_pattern(int dev, const char* text) {
    if (!text || std::string(text) == "model") return;
    const std::string p(text);
    if (p == "counter")
        use_frame_counter(dev);
    else if (p.rfind("constant:", 0) == 0)
        set_constant_frame(dev, static_cast<uint16_t>(std::atoi(p.c_str() + 9)));
    else
        warn("unknown ORU_VSENSOR_PATTERN '" + p + "'");
}

// ORU_VSENSOR_SCENE: a pattern scene name, or spectral scenes for all
// sensors or by sensor number ("0=led:468;1=led:640").
void apply_scene_setting(const char* text, std::vector<SensorOptions>& sensors) {
    if (!text || sensors.empty()) return;
    Scene pattern;
    if (parse_pattern_scene(text, &pattern)) {
        for (SensorOptions& o : sensors) o.scene = pattern;
        return;
    }
    for (const std::string& entry : split(text, ';')) {
        const size_t eq = entry.find('=');
        const bool numbered = eq != std::string::npos && eq > 0 && entry.find_first_not_of("0123456789") == eq;
        const int n = numbered ? std::atoi(entry.c_str()) : -1;
        const std::string scene = numbered ? entry.substr(eq + 1) : entry;
        std::vector<double> spectrum;
        std::string why;
        if (n >= static_cast<int>(sensors.size()) || !parse_spectrum(scene, &spectrum, &why)) {
            warn("unknown ORU_VSENSOR_SCENE '" + entry + "'" + (why.empty() ? "" : ": " + why));
            continue;
        }
        for (int i = 0; i < static_cast<int>(sensors.size()); ++i)
            if (n < 0 || n == i) sensors[static_cast<size_t>(i)].spectral_scene = scene;
    }
}

}  // namespace

int configure_from_environment() {
    if (const char* t = env("ORU_VSENSOR_TRACE")) detail::set_trace(std::atoi(t) != 0);
    if (const char* r = env("ORU_VSENSOR_REALTIME")) set_realtime(std::atoi(r) != 0);

    const std::vector<std::string> ids =
        env("ORU_VSENSOR_IDS") ? split(env("ORU_VSENSOR_IDS"), ',') : std::vector<std::string>{};
    int count = ids.empty() ? 1 : static_cast<int>(ids.size());
    if (const char* c = env("ORU_VSENSOR_COUNT")) count = std::max(0, std::atoi(c));

    SensorOptions base;
    if (const char* b = env("ORU_VSENSOR_BRIGHTNESS")) base.brightness = std::atof(b);
    if (const char* n = env("ORU_VSENSOR_NOISE")) base.noise_sigma = std::atof(n);
    if (const char* s = env("ORU_VSENSOR_SEED")) base.noise_seed = static_cast<uint32_t>(std::strtoul(s, nullptr, 0));
    FaultPlan plan = parse_faults(env("ORU_VSENSOR_FAULTS"), count);

    int added = 0;
    if (const char* l = env("ORU_VSENSOR_LED_DRIVER"); l && std::atoi(l) != 0) {
        add_led_driver();
        ++added;
    }
    std::vector<SensorOptions> sensors(static_cast<size_t>(count), base);
    apply_scene_setting(env("ORU_VSENSOR_SCENE"), sensors);
    std::vector<int> positions;  // bus position by sensor number
    for (int n = 0; n < count; ++n) {
        SensorOptions opts = sensors[static_cast<size_t>(n)];
        opts.faults = plan.faults[static_cast<size_t>(n)];
        if (!plan.scenes[static_cast<size_t>(n)].empty()) opts.spectral_scene = plan.scenes[static_cast<size_t>(n)];
        // Users number sensors from 0 whatever else is on the bus.
        opts.identity.x_coord = 12 + n;
        opts.identity_set = true;
        if (n < static_cast<int>(ids.size()) && !detail::parse_identity_text(ids[n], &opts.identity))
            warn("ignoring sensor ID '" + ids[n] + "'");
        const int dev = add_sensor(opts);
        positions.push_back(dev);
        apply_pattern(dev, env("ORU_VSENSOR_PATTERN"));
        ++added;
    }
    for (detail::TimedAction& a : plan.timed) a.dev = positions[static_cast<size_t>(a.dev)];
    detail::set_schedule(std::move(plan.timed));
    return added;
}

}  // namespace vsensor
