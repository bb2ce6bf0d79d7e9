// Default valid-filter table, built at compile time from its runs.
#include "oru_device_api_valid_filters.h"

#include <cstddef>
#include <iterator>

namespace {

struct FilterRun {
    int first;
    int last;  // inclusive
};

constexpr FilterRun kValidRuns[] = {
    {98, 99},   {101, 124}, {126, 127}, {130, 132}, {134, 155}, {157, 159}, {162, 191}, {194, 223}, {226, 231},
    {233, 248}, {250, 255}, {258, 287}, {290, 319}, {322, 351}, {354, 383}, {386, 415}, {418, 447}, {450, 479},
    {482, 495}, {497, 511}, {514, 528}, {530, 543}, {546, 575}, {578, 607}, {610, 639}, {642, 671}, {674, 703},
    {706, 735}, {738, 767}, {770, 775}, {777, 792}, {794, 799}, {802, 831}, {834, 863}, {866, 868}, {870, 891},
    {893, 895}, {898, 899}, {901, 924}, {926, 927}, {930, 959}, {963, 990},
};
static_assert(std::size(kValidRuns) == 42, "the table has 42 runs");

constexpr int count_valid_filters() {
    int count = 0;
    for (const FilterRun& run : kValidRuns) count += run.last - run.first + 1;
    return count;
}
static_assert(count_valid_filters() == num_valid_filters, "the runs hold 824 filters");

constexpr std::array<int, num_valid_filters> build_valid_filters() {
    std::array<int, num_valid_filters> table{};
    std::size_t n = 0;
    for (const FilterRun& run : kValidRuns)
        for (int index = run.first; index <= run.last; ++index) table[n++] = index;
    return table;
}

}  // namespace

const std::array<int, num_valid_filters> g_default_valid_filters = build_valid_filters();
