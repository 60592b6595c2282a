#pragma once

#include <cstdint>
#include <string>

#include "platform/events.hpp"
#include "platform/properties.hpp"

class QFsm;
class bmc_message_buffer;

// A node of the firmware's device tree.
class PLATFORM_API logical_device {
public:
    // `parent` may be null. `record` tells the tree to keep a record of the device.
    logical_device(logical_device* parent, const char* name, const char* type_name, bool record);
    virtual ~logical_device();
    logical_device(const logical_device&) = delete;
    logical_device& operator=(const logical_device&) = delete;

    virtual void ldd_report();
    // Gives the event to the device's state machine, if it has one.
    virtual void dispatch_event(const QEvent* event);
    // Called once by the firmware before any event; 1 for success.
    virtual int initialize(controller* owner);
    virtual int dispatch_command(bmc_message_buffer& command);

    const std::string& device_name() const { return _device_name; }
    // First word of the device's record in the tree, by which the firmware's other parts know it; 0 without a record.
    std::uint32_t record_id() const { return _record_id; }

protected:
    void set_record_id(std::uint32_t record_id) { _record_id = record_id; }
    void set_fsm(QFsm* machine) { _fsm_object = machine; }

private:
    std::string _device_name;
    std::uint32_t _record_id = 0;
    QFsm* _fsm_object = nullptr;
};

// Directory of the firmware's objects. What it hands out stays owned by the firmware.
struct PLATFORM_API DM {
    // Null for a controller that this machine does not have.
    static controller* get_controller(int type);
    // Null for a property that does not exist.
    static bmc_property* get_property(const char* path);
    static bmc_property* get_property(const std::string& path);
    // For good; pointers to the property end here. One that does not exist is no failure.
    static void del_property(const std::string& path);
    // By its place in the device tree, such as ".planar_controller.system_board"; null if nothing is there.
    static logical_device* find_logical_device_instance(const std::string& path);
    // The device that stands for one piece of hardware, by IPMI entity and instance; null if there is none.
    static logical_device* find_logical_device(std::uint8_t entity, std::uint8_t instance);
};
