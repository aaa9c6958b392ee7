// quillon-record-bench: time and allocations of one keyboard record, inside one process.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "common/common.h"
#include "main/data_server.h"
#include "myserial.h"
#include "protocol/records.h"
#include "sim/chips/ch9329.h"
#include "sim/computer/plain_computer.h"
#include "sim/host/private_host.h"
#include "sim/host/serial_ports.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

extern "C" void *__libc_malloc(std::size_t size);

namespace {

thread_local long allocations = 0;  // of this thread alone: the simulated chip has another

void record(benchmark::State &state) {
    sim::PlainComputer computer;
    sim::Ch9329 chip(computer, 115200, 115200);
    sim::SerialPorts ports(false);
    ports.attach(3, chip);
    MySerial::open_port(MySerial::KUART3);
    MySerial::set_opt(115200, 8, 1, 'N', 0, 0);
    version = true;
    UDPSocket socket;
    ConsoleServer server;
    const auto bytes = quillon::keyboardRecord({0, 0x04});
    const auto handle = [&] {
        char buffer[kConsoleBuffer] = {};
        memcpy(buffer, bytes.data(), bytes.size());
        handleConsoleDatagram(server, socket, "192.168.1.20", buffer,
                              static_cast<int>(bytes.size()));
    };
    handle();  // the first record makes standard output allocate its buffer
    allocations = 0;
    for (auto _ : state) handle();
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
}
BENCHMARK(record)->Unit(benchmark::kMicrosecond);

}  // namespace

// Counts every allocation of the program; operator new calls it too.
extern "C" void *malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

int main(int argc, char **argv) {
    holdStandardDescriptors();
    benchmark::Initialize(&argc, argv);
    return sim::runOnPrivateHost([] {
        // The log goes to /dev/null, as on a board that keeps none; the table to standard error.
        benchmark::ConsoleReporter table;
        table.SetOutputStream(&std::cerr);
        table.SetErrorStream(&std::cerr);
        if (freopen("/dev/null", "w", stdout) == nullptr) return 1;
        benchmark::RunSpecifiedBenchmarks(&table);
        return 0;
    });
}
