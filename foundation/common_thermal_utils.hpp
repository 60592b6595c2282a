#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/export.hpp"
#include "platform/devices.hpp"
#include "platform/ports.hpp"

// One I/O port of the firmware, whichever form the board chose for it, and the name space of the shared small types.
// The board binds a wrapper with create_port_*; devices only read and write. A wrapper nobody bound is harmless: every
// access reports failure, except that a bit reads as a successful 0, so ask is_bound() to tell absent from low.
class THERMAL_API common_thermal_utils {
public:
    // Kind of a device. The scheduler reads two patterns: 0x2000 marks presence and platform state, 0x1000 together
    // with 0x10 marks PCI requests that run five times a cycle.
    enum tdev_type_t : std::uint32_t {
        tdev_ambient = 3,
        tdev_pch_temperature = 4,
        tdev_psu_inlet = 5,
        tdev_disk_drive_temp = 6,
        tdev_fan = 7,
        tdev_fan_tach = 8,
        tdev_fan_pwm = 9,
        tdev_fan_control = 10,
        tdev_cpu_agent_intel = 11,
        tdev_cpu_agent_amd = 12,
        tdev_cpu_channel = 13,
        tdev_cpu_disabled = 14,
        tdev_cpu_info = 15,
        tdev_cpu_temperature = 16,
        tdev_cpu_power = 17,
        tdev_cpuvr = 18,
        tdev_dimmvr = 19,
        tdev_dimm_channel = 20,
        tdev_dimm_temperature = 21,
        tdev_pci_slot = 22,
        tdev_pci_agent_nvidia = 23,
        tdev_pci_agent_nvmemi = 24,
        tdev_uefi = 25,
        tdev_ipmi_sdr_map = 26,
        tdev_disk_drive_quantity = 27,
        tdev_disk_drive_backplane_info = 28,
        tdev_disk_drive_info = 29,
        tdev_retimer_temp = 30,
        tdev_raidcard = 31,
        tdev_pci_agent_xilinx = 32,
        tdev_cpu_throttle = 33,
        tdev_platform_info = 34,
        tdev_powervr = 35,
        tdev_dimm_info = 36,
        tdev_pci_agent_pldm = 37,
        tdev_pci_agent_amd = 38,
        tdev_m2_ambient = 39,
        tdev_m2_drive_temperature = 40,
        tdev_m2_composite = 41,
        tdev_pci_request_pciegen_pwrbrk = 42,
        tdev_pci_agent_intel_fpga = 43,
        tdev_pci_slot_stop_polling = 44,
        tdev_booted_drive_temperature = 45,
        tdev_nvme_temperature = 46,
        tdev_pci_supported_list = 47,
        tdev_exhaust_temperature = 48,
        tdev_generic_temperature = 49,
        tdev_airflow = 50,
        tdev_pci_agent_pensando_cpld = 51,
        tdev_pci_agent_pldm_api = 52,
        tdev_pci_agent_intel_nic = 53,
        tdev_pci_agent_nvidia_rf = 64,
        tdev_pci_request_nvidia_rf_temperature = 65,
        tdev_pci_agent_amd_rf = 66,
        tdev_pci_request_amd_rf_temperature = 67,
        tdev_nvswitch_temperature = 68,
        tdev_pci_agent_intel_gaudi3 = 69,
        tdev_pci_request_intel_gaudi3_temperature = 70,
        tdev_dummy = 4094,
        tdev_pci_request_nvidia_capability = 4113,
        tdev_pci_request_nvidia_temperature = 4114,
        tdev_pci_request_nvidia_power = 4115,
        tdev_pci_request_nvidia_memory_temperature = 4116,
        tdev_pci_request_nvidia_edp_info = 4117,
        tdev_pci_request_nvidia_tlimit_temperature = 4118,
        tdev_pci_request_ai100_temperature = 4129,
        tdev_pci_request_xilinx_temperature = 4145,
        tdev_pci_request_xilinx_memory_temperature = 4146,
        tdev_pci_request_pldm_status = 4161,
        tdev_pci_request_pldm_info = 4162,
        tdev_pci_request_amd_temperature = 4177,
        tdev_pci_request_amd_memory_temperature = 4178,
        tdev_pci_request_amd_power = 4179,
        tdev_pci_request_pci_power_meter = 4192,
        tdev_pci_request_intel_fpga_die_temperature = 4209,
        tdev_pci_request_intel_fpga_board_temperature = 4210,
        tdev_pci_request_pensando_cpld_temperature = 4225,
        tdev_pci_request_intel_nic_temperature = 4241,
        tdev_event_status = 8193,
        tdev_fpga_capabilities = 8194,
        tdev_fpga_one_cpu_info = 8195,
        tdev_pch_presence = 8196,
        tdev_psu_presence = 8197,
        tdev_disk_drive_presence = 8198,
        tdev_cpu_presence = 8199,
        tdev_dimm_presence = 8200,
        tdev_fpga_fan_info = 8202,
        tdev_pci_slot_presence = 8203,
        tdev_disk_drive_backplane_presence = 8204,
        tdev_retimer_presence = 8205,
        tdev_raidcard_presence = 8206,
        tdev_m2_ambient_presence = 8207,
        tdev_m2_drive_presence = 8208,
        tdev_nvidia_ubb_presence = 8209,
    };

    // Kind of an algorithm; several classes share one.
    enum talg_type_t : std::uint32_t {
        talg_dummy = 0,
        talg_cubic_equation = 1,
        talg_threshold = 2,
        talg_pid = 3,
        talg_ipmi_sdr_map = 4,
        talg_sensor_capping_cpu = 5,
        talg_sensor_capping_dimm = 6,
        talg_sensor_capping_system = 7,
        talg_sensor_capping_pciegen_pwrbrk = 8,
        talg_log = 9,
        talg_support_list_pci_tier = 11,
        talg_support_list_pci_pid = 12,
        talg_config_spike = 13,
        talg_config_spike_pci_list = 14,
        talg_config_pci_max_watt = 15,
        talg_config_pci_list_threshold = 17,
        talg_config_nvme_cap_params = 18,
        talg_sensor_capping_nvme_device = 19,
        talg_sensor_capping_dimm_percentage = 20,
        talg_sensor_capping_fan_percentage = 21,
        talg_sensor_capping_gpu_percentage = 22,
        talg_sensor_capping_power_permission = 23,
        talg_serial_calculation = 24,
        talg_stepwise = 25,
    };

    // Boot stages of the host, as the firmware's events tell them.
    enum status_stage_t : std::uint32_t {
        ipmi_ready = 0,
        post_init = 1,
        post_completed = 2,
        power_good = 3,
        dp_ready = 4,  // the data path to the adapters is up
        cpu_feh = 5,
    };

    // Families of diagnostic texts.
    enum log_type_t : std::uint32_t {
        log_devices = 0,
        log_algorithms = 1,
        log_schedule = 3,
        log_store = 4,
        log_ipmi_sensors = 5,
    };

    // Both where a request to an adapter stands between two polls, and what an operation on its bus came to.
    enum nv_cmd_status_t : std::uint32_t {
        cmd_idle = 0,         // nothing in flight: send; as a result: not done in this state
        cmd_wrong_token = 1,  // the bus belongs to another request
        cmd_failed = 2,       // bus error, or the adapter refused
        cmd_pending = 3,      // sent: ask for the status again
        cmd_data_ready = 4,   // done: read the data
        cmd_accepted = 5,     // the adapter carries it out in the background
        cmd_busy = 6,
        cmd_complete = 7,  // the answer is in hand
        cmd_skipped = 8,   // not sent
    };

    // Comparison of a live store value with a rule's threshold. OP_NON, OP_MASK and OP_LAST never hold.
    enum operator_t : int { OP_NON, OP_EQ, OP_LE, OP_GE, OP_MASK, OP_NE, OP_LT, OP_GT, OP_LAST };

    // How an IPMI sensor reports what is wrong with its value: thresholds go to the sensor, which judges for itself, or
    // a state is worked out here and shown on three event ports.
    enum sel_event_t : std::uint32_t {
        sel_event_none = 0,
        sel_event_thresholds = 1,
        sel_event_bits = 2,
        sel_event_bits_too = 3,  // the same
        sel_event_thresholds_and_bits = 4,
        sel_event_integers = 5,  // integer ports in place of bits
    };

    // Reference to a store value.
    struct dao_t {
        std::string name;
        int instance = 0;
    };

    // One function of a PCI adapter, as the inventory has it.
    struct pci_info_t {
        std::uint32_t class_code = 0;  // 0x120000 marks a processing accelerator
        float max_tdp = 0.0f;          // W, 0 where unknown
        std::uint16_t slot_no = 0;
        std::uint16_t vendor_id = 0;
        std::uint16_t device_id = 0;
        std::uint16_t sub_vendor_id = 0;
        std::uint16_t sub_device_id = 0;
        std::uint8_t location = 0;  // with slot_no the identity of a slot
    };

    // What a temperature without a valid reading shows, in degrees Celsius.
    static constexpr float invalid_temperature = 255.0f;

    common_thermal_utils();
    ~common_thermal_utils();
    common_thermal_utils(const common_thermal_utils&) = delete;
    common_thermal_utils& operator=(const common_thermal_utils&) = delete;

    // By port number. `name` and `instance` make the text that log lines show; `show_pin` logs the board's pin name.
    void create_port_bit(const logical_device& owner, const std::string& name, int instance, unsigned port,
                         bool show_pin);
    void create_port_integer(const logical_device& owner, const std::string& name, int instance, unsigned port,
                             bool show_pin);
    void create_port_block(const logical_device& owner, const std::string& name, int instance, unsigned port,
                           bool show_pin);
    void create_port_fantach(const logical_device& owner, const std::string& name, int instance, unsigned port,
                             bool show_pin);

    // By key. An empty key binds no bit and no integer; a block port is made in any case.
    void create_port_bit(const logical_device& owner, const std::string& key);
    void create_port_integer(const logical_device& owner, const std::string& key);
    void create_port_block(const logical_device& owner, const std::string& key);
    void create_port_bit(const logical_device& owner, const std::string&, int, const std::string& key) {
        create_port_bit(owner, key);
    }
    void create_port_integer(const logical_device& owner, const std::string&, int, const std::string& key) {
        create_port_integer(owner, key);
    }
    void create_port_block(const logical_device& owner, const std::string&, int, const std::string& key) {
        create_port_block(owner, key);
    }

    bool is_bound() const;

    // A logical port reads true with 0 or 1; a keyed port that reads low answers false with 0.
    bool read_port_bit(std::uint8_t* value);
    bool write_port_bit(std::uint8_t value);
    // A keyed port that fails leaves `*value` alone; a logical one leaves what its line answered, 0 without a line.
    bool read_port_integer(std::uint32_t* value);
    bool write_port_integer(std::uint32_t value);
    // Positions are the port's own units; reads and writes move a logical port on by their bytes.
    bool seek_port_block(std::uint32_t position);
    // `*got` is the number of bytes read. A keyed port answers true also when it read none.
    bool read_port_block(std::uint8_t* buffer, std::uint32_t* got, std::uint32_t max);
    bool write_port_block(const std::uint8_t* buffer, std::uint32_t size);
    bool write_read_port_block(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max);
    bool config_port_fantach(const TACHData* configuration);
    // False leaves 0 in `*value`.
    bool read_port_fantach(TACHData* data, int* value);

    std::uint32_t get_key_uint() const { return _key_uint; }
    const std::string& get_key_string() const { return _key_string; }

    // Writes a property, making it if it does not exist. True if it existed and took the value.
    static bool set_ipmi_property(const char* path, std::uint8_t value);
    static bool set_ipmi_property(const char* path, std::uint16_t value);
    static bool set_ipmi_property(const char* path, std::uint32_t value);
    static bool set_ipmi_property(const char* path, const std::uint8_t* bytes, unsigned size);
    // Reads a property; one that does not exist is made with 0 and reads as 0.
    static void get_ipmi_property(const char* path, std::uint8_t& value);
    static void get_ipmi_property(const char* path, std::uint16_t& value);
    static void get_ipmi_property(const char* path, std::uint32_t& value);

    // The device under which those of this library stand in the device tree; null where the firmware has none.
    static logical_device* thermal_controller_device();

    // The host's power-brake setting, 0 to 3. Returns 0 on success; any other value leaves `mode` alone.
    static int get_uefi_pciegen_pwrbrk_mode(std::uint8_t& mode);

    // Temperature in degrees Celsius from an FPGA record: 12 bits, unit 0.0625, at bytes `offset` + 5 and + 6 of a
    // 16-byte block. A record marked invalid, or one that lies outside the block, gives 255.0.
    static float convert_fpga_ambient_raw_data_to_temp(const std::uint8_t* block, std::uint32_t offset);

private:
    void release();

    std::unique_ptr<bit_port> _bit;
    std::unique_ptr<cio_bit_port> _cio_bit;
    std::unique_ptr<block_port> _block;
    std::unique_ptr<cio_block_port> _cio_block;
    std::unique_ptr<integer_port> _integer;
    std::unique_ptr<cio_integer_port> _cio_integer;
    std::unique_ptr<fantach_hal_port> _fantach;
    std::uint32_t _position = 0;
    std::uint32_t _key_uint = 0;
    std::string _key_string;
};
