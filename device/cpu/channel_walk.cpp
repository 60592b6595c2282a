#include "device/cpu/channel_walk.hpp"

#include "device/cpu/cpu_channel.hpp"

cpu_connection last_cpu_connection(const common_thermal_device& device) {
    cpu_connection last;
    device.for_each_depend<common_thermal_device_cpu_channel>(
        common_thermal_utils::tdev_cpu_channel, [&last](const common_thermal_device_cpu_channel& channel) {
            host_cpu_interface* processor = channel.get_host_cpu_channel();
            last = {processor, channel.get_host_cpu_address(), processor != nullptr && channel.is_actived()};
        });
    return last;
}
