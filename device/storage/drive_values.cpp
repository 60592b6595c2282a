#include "device/storage/drive_values.hpp"

#include "foundation/log_masks.hpp"

float drive_form_factor(const drive_record& drive) {
    struct row {
        std::uint8_t flag;
        float form_factor;
    };
    // The first flag that is set decides.
    constexpr row rows[] = {{0x10, 1.0f}, {0x08, 2.0f}, {0x04, 3.0f}, {0x20, 4.0f}, {0x40, 5.0f}};
    for (const row& candidate : rows) {
        if ((drive.flags & candidate.flag) != 0) {
            return candidate.form_factor;
        }
    }
    return 0.0f;
}

float drive_margin(const drive_record& drive) {
    const std::uint32_t threshold = threshold_or_usual(drive.warning_temperature);
    if (drive.temperature > threshold) {
        LOG::log(log_source, log_mask::bus, "%s nvme temp invalid:: mi.wctemp(%u) temp(%u)\n", "poll",
                 static_cast<unsigned>(drive.warning_temperature), static_cast<unsigned>(drive.temperature));
        return 0.0f;
    }
    return static_cast<float>(threshold - drive.temperature);
}
