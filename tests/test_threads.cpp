// The exported functions from several threads at once: four threads on two
// sensors that show different levels mix reads, setters, lists, IDs and
// activation; each must always get its own sensor's data.
#include "api_test_support.h"

#include "oru_device_api.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

class Threads : public VirtualBusTest {};

// ORU_STRESS_SECONDS shortens the run (the slower sanitizer builds).
std::chrono::milliseconds stress_time() {
    const char* env = std::getenv("ORU_STRESS_SECONDS");
    return std::chrono::milliseconds(static_cast<long>((env != nullptr ? std::atof(env) : 30.0) * 1000));
}

double level_of(int sensor) { return sensor == 0 ? 1000.0 : 3000.0; }

TEST_F(Threads, FourThreadsOnTwoSensorsEachGetTheirOwnSensor) {
    connect(2);
    duSetLogHandler([](int, const char*, void*) {}, nullptr);
    vsensor::set_constant_frame(0, static_cast<uint16_t>(level_of(0)));
    vsensor::set_constant_frame(1, static_cast<uint16_t>(level_of(1)));
    const std::string ids[2] = {default_sensor_id(0), default_sensor_id(1)};

    std::atomic<long> wrong{0}, failed{0}, calls{0};
    // Counts a call that failed, or one whose answer is not its sensor's.
    auto check = [&](bool ok, bool right) { ++(ok ? (right ? calls : wrong) : failed); };
    const auto until = std::chrono::steady_clock::now() + stress_time();
    auto worker = [&](int thread) {
        const int sensor = thread % 2;
        std::mt19937 random(static_cast<unsigned>(thread));
        std::vector<double> data(1024);
        // At least 50 rounds each, however loaded the machine: the count below holds.
        for (int round = 0; round < 50 || std::chrono::steady_clock::now() < until; ++round) {
            const unsigned choice = random() % 6;
            if (choice == 2) {  // the list, which needs no sensor
                char** list = duGetSensorList();
                const int total = duGetTotalSensors();
                check(list != nullptr && total == 2, list && ids[0] == list[0] && ids[1] == list[1]);
                for (int i = 0; list && i < total; ++i) std::free(list[i]);
                std::free(list);
                continue;
            }
            if (choice == 4) {  // activation alone, racing everyone else's
                duActivateSensorWithIndex(static_cast<int>(random() % 2));
                continue;
            }
            // The others activate their sensor and call under the lock.
            duLockSensors();
            if (choice == 3) {
                char id[26] = {};
                duActivateSensorWithID(ids[sensor].c_str());
                const bool ok = duGetSensorID(id) == 1;
                check(ok, ids[sensor] == id);
            } else {
                duActivateSensorWithIndex(sensor);
                if (choice == 0) {
                    const bool ok = duGetFilterData(data.data(), 1 + static_cast<int>(random() % 3)) == 1;
                    check(ok, data[0] == level_of(sensor) && data[1023] == level_of(sensor));
                } else if (choice == 1) {  // a setter and its read-back
                    const int shutter = 1 + static_cast<int>(random() % 5);
                    const bool ok = duSetShutterSpeed(shutter) == 1;
                    check(ok, duGetShutterSpeed() == shutter);
                } else {
                    int gain = -1, range = -1;
                    check(duGetSensorParameters(&gain, &range) == 1, true);
                }
            }
            duUnlockSensors();
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(worker, t);
    for (std::thread& t : threads) t.join();
    duSetLogHandler(nullptr, nullptr);
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(failed.load(), 0);
    EXPECT_GT(calls.load(), 100);
    RecordProperty("calls", std::to_string(calls.load()));
}

}  // namespace
