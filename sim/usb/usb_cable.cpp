#include "sim/usb/usb_cable.h"

#include <sys/socket.h>

#include <usbredirparser.h>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace sim {
namespace {

constexpr std::uint8_t kSuccess = usb_redir_success, kStall = usb_redir_stall;

struct FreeParser {
    void operator()(usbredirparser *parser) const { usbredirparser_destroy(parser); }
};

}  // namespace

class UsbCable::Peer {
  public:
    explicit Peer(Descriptor fd) : fd_(std::move(fd)), parser_(usbredirparser_create()) {
        if (!parser_) throw std::runtime_error("no memory for the USB cable");
        usbredirparser *parser = parser_.get();
        parser->priv = this;
        parser->log_func = [](void *, int, const char *) {};
        parser->read_func = [](void *self, std::uint8_t *data, int count) {
            if (of(self).readNow_ >= kMostAtOnce) return 0;
            const ssize_t n =
                recv(of(self).fd_.get(), data, static_cast<std::size_t>(count), MSG_DONTWAIT);
            if (n < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
            if (n > 0) of(self).readNow_ += static_cast<std::size_t>(n);
            return n <= 0 ? -1 : static_cast<int>(n);
        };
        parser->write_func = [](void *self, std::uint8_t *data, int count) {
            const ssize_t n = send(of(self).fd_.get(), data, static_cast<std::size_t>(count),
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
            if (n < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
            return n < 0 ? -1 : static_cast<int>(n);
        };
        takePackets(*parser);
        std::uint32_t capabilities[USB_REDIR_CAPS_SIZE]{};
        // Without the lengths of 32 bits an xHCI controller refuses the device.
        for (const int capability :
             {usb_redir_cap_connect_device_version, usb_redir_cap_device_disconnect_ack,
              usb_redir_cap_ep_info_max_packet_size, usb_redir_cap_64bits_ids,
              usb_redir_cap_32bits_bulk_length})
            usbredirparser_caps_set_cap(capabilities, capability);
        char name[] = "quillon-board";
        usbredirparser_init(parser, name, capabilities, USB_REDIR_CAPS_SIZE,
                            usbredirparser_fl_usb_host);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    void plug(UsbDevice *device) {
        if (connected_) {
            usbredirparser_send_device_disconnect(parser_.get());
            connected_ = false;
            // What arrives until then is for the device that is gone.
            leaving_ = usbredirparser_peer_has_cap(parser_.get(),
                                                   usb_redir_cap_device_disconnect_ack) != 0;
        }
        device_ = device;
        connect();
    }

    // Not all that comes: one that sends without end must not keep the chip waiting, and one that
    // never reads must not fill the memory with answers.
    bool read() {
        readNow_ = 0;
        return usbredirparser_do_read(parser_.get()) == 0 &&
               usbredirparser_get_bufferered_output_size(parser_.get()) < kMostUnsent;
    }

    void write() {
        for (std::size_t n = 0; connected_ && n < device_->interfaces(); ++n) {
            const std::uint8_t endpoint = UsbDevice::endpointOf(n);
            if (auto report = device_->next(endpoint, Clock::now())) {
                usb_redir_interrupt_packet_header header{
                    endpoint, kSuccess, static_cast<std::uint16_t>(report->size())};
                usbredirparser_send_interrupt_packet(parser_.get(), ids_[n]++, &header,
                                                     report->data(),
                                                     static_cast<int>(report->size()));
            }
        }
        if (usbredirparser_has_data_to_write(parser_.get()) != 0)
            usbredirparser_do_write(parser_.get());
    }

    bool blocked() const { return usbredirparser_has_data_to_write(parser_.get()) != 0; }
    int descriptor() const { return fd_.get(); }

  private:
    static Peer &of(void *self) { return *static_cast<Peer *>(self); }

    void takePackets(usbredirparser &parser) {
        parser.hello_func = [](void *self, usb_redir_hello_header *) {
            of(self).greeted_ = true;
            of(self).connect();
        };
        parser.reset_func = [](void *self) {
            if (of(self).connected_) of(self).device_->reset();
        };
        parser.device_disconnect_ack_func = [](void *self) {
            of(self).leaving_ = false;
            of(self).connect();
        };
        parser.set_configuration_func = [](void *self, std::uint64_t id,
                                           usb_redir_set_configuration_header *header) {
            of(self).configure(id, header->configuration);
        };
        parser.get_configuration_func = [](void *self, std::uint64_t id) {
            of(self).tellConfiguration(id);
        };
        parser.set_alt_setting_func = [](void *self, std::uint64_t id,
                                         usb_redir_set_alt_setting_header *header) {
            of(self).tellSetting(id, header->interface, header->alt == 0 ? kSuccess : kStall);
        };
        parser.get_alt_setting_func = [](void *self, std::uint64_t id,
                                         usb_redir_get_alt_setting_header *header) {
            of(self).tellSetting(id, header->interface, kSuccess);
        };
        parser.start_interrupt_receiving_func =
            [](void *self, std::uint64_t id, usb_redir_start_interrupt_receiving_header *header) {
                of(self).poll(id, header->endpoint, true);
            };
        parser.stop_interrupt_receiving_func =
            [](void *self, std::uint64_t id, usb_redir_stop_interrupt_receiving_header *header) {
                of(self).poll(id, header->endpoint, false);
            };
        parser.cancel_data_packet_func = [](void *, std::uint64_t) {};
        parser.control_packet_func = [](void *self, std::uint64_t id,
                                        usb_redir_control_packet_header *header, std::uint8_t *data,
                                        int size) { of(self).control(id, *header, data, size); };
        parser.interrupt_packet_func =
            [](void *self, std::uint64_t, usb_redir_interrupt_packet_header *, std::uint8_t *data,
               int) { usbredirparser_free_packet_data(of(self).parser_.get(), data); };
        refuseOthers(parser);
    }

    // A keyboard has no endpoints for these, but QEMU may ask, as a computer may tell it to.
    static void refuseOthers(usbredirparser &parser) {
        parser.start_iso_stream_func = [](void *, std::uint64_t,
                                          usb_redir_start_iso_stream_header *) {};
        parser.stop_iso_stream_func = [](void *, std::uint64_t,
                                         usb_redir_stop_iso_stream_header *) {};
        parser.alloc_bulk_streams_func = [](void *, std::uint64_t,
                                            usb_redir_alloc_bulk_streams_header *) {};
        parser.free_bulk_streams_func = [](void *, std::uint64_t,
                                           usb_redir_free_bulk_streams_header *) {};
        parser.start_bulk_receiving_func = [](void *, std::uint64_t,
                                              usb_redir_start_bulk_receiving_header *) {};
        parser.stop_bulk_receiving_func = [](void *, std::uint64_t,
                                             usb_redir_stop_bulk_receiving_header *) {};
        parser.filter_reject_func = [](void *) {};
        parser.filter_filter_func = [](void *, usbredirfilter_rule *rules, int) { free(rules); };
        parser.bulk_packet_func = [](void *self, std::uint64_t, usb_redir_bulk_packet_header *,
                                     std::uint8_t *data, int) {
            usbredirparser_free_packet_data(of(self).parser_.get(), data);
        };
        parser.iso_packet_func = [](void *self, std::uint64_t, usb_redir_iso_packet_header *,
                                    std::uint8_t *data, int) {
            usbredirparser_free_packet_data(of(self).parser_.get(), data);
        };
    }

    void describe() {
        usb_redir_interface_info_header interfaces{};
        usb_redir_ep_info_header endpoints{};
        for (std::uint8_t &type : endpoints.type) type = usb_redir_type_invalid;
        endpoints.type[0] = endpoints.type[kFirstIn] = usb_redir_type_control;
        endpoints.max_packet_size[0] = endpoints.max_packet_size[kFirstIn] = UsbDevice::kPacketSize;
        interfaces.interface_count = static_cast<std::uint32_t>(device_->interfaces());
        for (std::size_t n = 0; n < device_->interfaces(); ++n) {
            const UsbDevice::Interface &interface = device_->interface(n);
            constexpr std::uint8_t kHidClass = 3;
            interfaces.interface[n] = static_cast<std::uint8_t>(n);
            interfaces.interface_class[n] = kHidClass;
            interfaces.interface_subclass[n] = interface.subclass;
            interfaces.interface_protocol[n] = interface.protocol;
            const std::size_t endpoint = kFirstIn + 1 + n;
            endpoints.type[endpoint] = usb_redir_type_interrupt;
            endpoints.interval[endpoint] = UsbDevice::kInterval;
            endpoints.interface[endpoint] = static_cast<std::uint8_t>(n);
            endpoints.max_packet_size[endpoint] = UsbDevice::kPacketSize;
        }
        usbredirparser_send_interface_info(parser_.get(), &interfaces);
        usbredirparser_send_ep_info(parser_.get(), &endpoints);
    }

    void connect() {
        if (device_ == nullptr || !greeted_ || leaving_ || connected_) return;
        connected_ = true;
        for (std::uint64_t &id : ids_) id = 0;
        device_->reset();
        describe();
        usb_redir_device_connect_header header{};
        header.speed = usb_redir_speed_full;
        header.vendor_id = device_->vendor();
        header.product_id = device_->product();
        header.device_version_bcd = 0x0100;
        usbredirparser_send_device_connect(parser_.get(), &header);
    }

    void configure(std::uint64_t id, std::uint8_t configuration) {
        if (!connected_) return;
        if (configuration <= 1) {
            device_->configure(configuration);
            describe();
        }
        tellConfiguration(id);
    }

    void tellConfiguration(std::uint64_t id) {
        usb_redir_configuration_status_header header{
            kSuccess, connected_ ? device_->configuration() : std::uint8_t{0}};
        usbredirparser_send_configuration_status(parser_.get(), id, &header);
    }

    void tellSetting(std::uint64_t id, std::uint8_t interface, std::uint8_t status) {
        usb_redir_alt_setting_status_header header{status, interface, 0};
        usbredirparser_send_alt_setting_status(parser_.get(), id, &header);
    }

    void poll(std::uint64_t id, std::uint8_t endpoint, bool on) {
        if (!connected_) return;
        device_->poll(endpoint, on);
        usb_redir_interrupt_receiving_status_header header{kSuccess, endpoint};
        usbredirparser_send_interrupt_receiving_status(parser_.get(), id, &header);
    }

    void control(std::uint64_t id, usb_redir_control_packet_header header, std::uint8_t *data,
                 int size) {
        const Bytes received(data, data + (data != nullptr ? size : 0));
        usbredirparser_free_packet_data(parser_.get(), data);
        if (!connected_) return;
        auto answer = device_->control(
            {header.requesttype, header.request, header.value, header.index, header.length},
            received);
        const bool reads = (header.requesttype & 0x80) != 0;
        if (!reads && answer) answer->clear();
        header.status = answer ? kSuccess : kStall;  // QEMU's own status byte says nothing
        if (reads || !answer)
            header.length = static_cast<std::uint16_t>(answer ? answer->size() : 0);
        usbredirparser_send_control_packet(parser_.get(), id, &header,
                                           answer && reads ? answer->data() : nullptr,
                                           answer && reads ? static_cast<int>(answer->size()) : 0);
    }

    static constexpr std::size_t kFirstIn = 16;  // the tables have the OUT endpoints first

    static constexpr std::size_t kMostAtOnce = 65536, kMostUnsent = 1 << 20;

    const Descriptor fd_;
    std::size_t readNow_ = 0;
    std::unique_ptr<usbredirparser, FreeParser> parser_;
    UsbDevice *device_ = nullptr;
    bool greeted_ = false, connected_ = false, leaving_ = false;
    std::uint64_t ids_[4]{};
};

UsbCable::UsbCable(Descriptor fd) : peer_(std::make_unique<Peer>(std::move(fd))) {}
UsbCable::~UsbCable() = default;

int UsbCable::descriptor() const {
    return peer_->descriptor();
}

void UsbCable::plug(UsbDevice *device) {
    peer_->plug(device);
}

bool UsbCable::read() {
    return peer_->read();
}

void UsbCable::write() {
    peer_->write();
}

bool UsbCable::blocked() const {
    return peer_->blocked();
}

}  // namespace sim
