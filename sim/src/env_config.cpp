// The bus as a user configures it: ORU_VSENSOR_* environment variables.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "event_log.h"
#include "identity_text.h"
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

bool parse_scene(const std::string& name, Scene* scene) {
    if (name == "dark")
        *scene = Scene::Dark;
    else if (name == "white")
        *scene = Scene::FlatWhite;
    else if (name == "led")
        *scene = Scene::LedLine;
    else if (name == "lamp")
        *scene = Scene::BroadLamp;
    else
        return false;
    return true;
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

// "0:stall,1:claim" -> faults per sensor number.
std::vector<unsigned> parse_faults(const char* text, int sensors) {
    std::vector<unsigned> faults(static_cast<size_t>(sensors), kFaultNone);
    if (!text) return faults;
    for (const std::string& item : split(text, ',')) {
        const size_t colon = item.find(':');
        const unsigned bit = colon == std::string::npos ? 0 : fault_bit(item.substr(colon + 1));
        const int n = colon == std::string::npos ? -1 : std::atoi(item.substr(0, colon).c_str());
        if (!bit || n < 0 || n >= sensors) {
            warn("ignoring fault '" + item + "'");
            continue;
        }
        faults[static_cast<size_t>(n)] |= bit;
    }
    return faults;
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

}  // namespace

int configure_from_environment() {
    if (const char* t = env("ORU_VSENSOR_TRACE")) detail::set_trace(std::atoi(t) != 0);
    if (const char* r = env("ORU_VSENSOR_REALTIME")) set_realtime(std::atoi(r) != 0);

    const std::vector<std::string> ids =
        env("ORU_VSENSOR_IDS") ? split(env("ORU_VSENSOR_IDS"), ',') : std::vector<std::string>{};
    int count = ids.empty() ? 1 : static_cast<int>(ids.size());
    if (const char* c = env("ORU_VSENSOR_COUNT")) count = std::max(0, std::atoi(c));

    SensorOptions base;
    if (const char* s = env("ORU_VSENSOR_SCENE"))
        if (!parse_scene(s, &base.scene)) warn(std::string("unknown ORU_VSENSOR_SCENE '") + s + "'");
    if (const char* b = env("ORU_VSENSOR_BRIGHTNESS")) base.brightness = std::atof(b);
    if (const char* n = env("ORU_VSENSOR_NOISE")) base.noise_sigma = std::atof(n);
    if (const char* s = env("ORU_VSENSOR_SEED")) base.noise_seed = static_cast<uint32_t>(std::strtoul(s, nullptr, 0));
    const std::vector<unsigned> faults = parse_faults(env("ORU_VSENSOR_FAULTS"), count);

    int added = 0;
    if (const char* l = env("ORU_VSENSOR_LED_DRIVER"); l && std::atoi(l) != 0) {
        add_led_driver();
        ++added;
    }
    for (int n = 0; n < count; ++n) {
        SensorOptions opts = base;
        opts.faults = faults[static_cast<size_t>(n)];
        // Users number sensors from 0 whatever else is on the bus.
        opts.identity.x_coord = 12 + n;
        opts.identity_set = true;
        if (n < static_cast<int>(ids.size()) && !detail::parse_identity_text(ids[n], &opts.identity))
            warn("ignoring sensor ID '" + ids[n] + "'");
        const int dev = add_sensor(opts);
        apply_pattern(dev, env("ORU_VSENSOR_PATTERN"));
        ++added;
    }
    return added;
}

}  // namespace vsensor
