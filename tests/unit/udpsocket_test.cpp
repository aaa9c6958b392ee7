#include "udpsocket/udpsocket.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <atomic>
#include <thread>

#include "sim/host/network.h"
#include "tests/support/support.h"

namespace {

using namespace std::chrono_literals;
using test::complainedBy, test::printedBy;

constexpr char kBoard[] = "192.168.7.10", kConsole[] = "192.168.7.20";

std::string infoOf(const char *name, int which) {
    char text[160] = "";
    return NetworkInfo::GetNetworkInfo(name, static_cast<NetworkInfo::IF_CONFIG>(which), text)
               ? text
               : "failed";
}

std::string received(UDPSocket &socket) {
    char buffer[64];
    const int n = socket.RecvFrom(buffer, sizeof buffer);
    return n < 0 ? "failed" : std::string(buffer, static_cast<std::size_t>(n));
}

// A server with a time-out of 1 s, and a client.
class UdpSocket : public testing::Test {
  protected:
    UdpSocket() {
        server_.CreateUDPServer(5000, 1, true, true);
        client_.CreateUDPServer(5001, 1, true, true);
    }

    UDPSocket server_, client_;
};

TEST(NetworkInfo, TellsOfAnInterfaceAndNothingOfNone) {
    sim::makeEth0({kBoard, kConsole});
    EXPECT_EQ(infoOf("eth0", NetworkInfo::kADDR), kBoard);
    EXPECT_EQ(infoOf("eth0", NetworkInfo::kBRDADDR), "192.168.7.255");
    EXPECT_EQ(infoOf("eth0", NetworkInfo::kNETMASK), "255.255.255.0");
    const std::string mac = infoOf("eth0", NetworkInfo::kHWADDR);
    EXPECT_EQ(mac.size(), 17U);
    EXPECT_EQ(infoOf("eth0", NetworkInfo::kALL),
              "mac:" + mac + "@ip:" + kBoard + "@mask:255.255.255.0@braod:192.168.7.255");
    const std::size_t open = test::descriptors();
    EXPECT_EQ(infoOf("eth9", NetworkInfo::kADDR), "");
    EXPECT_EQ(test::descriptors(), open);
    EXPECT_EQ(infoOf("eth0", 35098), "failed");
}

TEST_F(UdpSocket, EchoesToTheLastSender) {
    EXPECT_EQ(server_.EchoTo("x", 1), -1) << "nothing was received yet";
    EXPECT_EQ(client_.SendTo("127.0.0.1", 5000, "ask", 3), 3);
    EXPECT_EQ(received(server_), "ask");
    EXPECT_EQ(ntohs(server_.GetClientSockaddr().sin_port), 5001);
    EXPECT_EQ(server_.EchoTo("answer", 6), 6);
    EXPECT_EQ(received(client_), "answer");
    EXPECT_EQ(client_.SendTo(nullptr, 5000, "x", 1), -1);
    EXPECT_EQ(client_.SendTo("127.0.0.1", 5000, nullptr, 1), -1);
}

TEST_F(UdpSocket, ClientsSendConnectedAndNot) {
    for (const bool connected : {false, true}) {
        UDPSocket client;
        const int fd = client.CreateUDPClient("127.0.0.1", 5000, true, connected);
        ASSERT_GE(fd, 0);
        EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(client.SendTo("hi", 2), 2);
        EXPECT_EQ(received(server_), "hi");
    }
}

TEST_F(UdpSocket, WithoutDescriptorTakesItsErrorPath) {
    UDPSocket socket;
    EXPECT_EQ(received(socket), "failed");
    EXPECT_FALSE(socket.delRcvBuff());
    server_.CloseUDPSocket();
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(received(server_), "failed"); }),
              "select rcvfrom timeout\n");
    EXPECT_FALSE(server_.delRcvBuff());
    EXPECT_EQ(server_.SendTo("127.0.0.1", 1, "x", 1), -1);
}

TEST_F(UdpSocket, DrainsWhatIsQueued) {
    UDPSocket plain;
    plain.CreateUDPServer(5002, 0, false, true);
    EXPECT_FALSE(plain.delRcvBuff());
    const std::string large(200, 'l');
    client_.SendTo("127.0.0.1", 5000, large.data(), 200);
    client_.SendTo("127.0.0.1", 5000, "old", 3);
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(server_.delRcvBuff()); }),
              "del buff-->" + large.substr(0, 128) + "\ndel buff-->old\ntimeout rcvbuff del ok\n");
    EXPECT_EQ(received(server_), "");
}

TEST_F(UdpSocket, AFloodDoesNotKeepTheDrain) {
    std::atomic<bool> ending{false};
    std::thread flood([&] {
        while (!ending) client_.SendTo("127.0.0.1", 5000, "old", 3);
    });
    const auto begin = sim::Clock::now();
    const std::string said = printedBy([&] { EXPECT_TRUE(server_.delRcvBuff()); });
    EXPECT_LT(sim::Clock::now() - begin, 2s) << "100 ms are meant";
    ending = true;
    flood.join();
    EXPECT_EQ(said.substr(said.size() - 23), "timeout rcvbuff del ok\n");
}

TEST_F(UdpSocket, DrainGivesTheNextReceiveItsWholeSecondsAgain) {
    // Leaves almost a second in the microseconds of the time-out.
    const auto receiveOne = [&] {
        client_.SendTo("127.0.0.1", 5000, "x", 1);
        received(server_);
    };
    const auto waits = [&] {
        const auto begin = sim::Clock::now();
        printedBy([&] { received(server_); });
        return sim::Clock::now() - begin;
    };
    receiveOne();
    EXPECT_GT(waits(), 1500ms) << "they count: deliberate";
    bool whole = false;
    // A busy machine may take too long once, but not each time.
    for (int i = 0; i < 5 && !whole; ++i) {
        receiveOne();
        printedBy([&] { server_.delRcvBuff(); });
        whole = waits() < 1500ms;
    }
    EXPECT_TRUE(whole);
}

TEST_F(UdpSocket, SaysWhatFailed) {
    UDPSocket second, closed;
    EXPECT_EQ(complainedBy([&] { EXPECT_EQ(second.CreateUDPServer(5000, 0, false, false), -1); }),
              "bind error: Address already in use\n");
    EXPECT_EQ(complainedBy([&] {
                  EXPECT_EQ(closed.GetRevBuf(), -1);
                  EXPECT_FALSE(closed.SetSndBuf(4096));
                  EXPECT_FALSE(closed.AddBroadCast(nullptr));
                  EXPECT_FALSE(closed.AddMemberShip("224.168.1.1", "eth0", true));
                  EXPECT_FALSE(closed.DropMemberShip());
              }),
              "getsockopt():SO_RCVBUF: Bad file descriptor\n"
              "setsockopt():SO_SNDBUF: Bad file descriptor\n"
              "setsockopt():SO_BROADCAST: Bad file descriptor\n"
              "setsockopt():IP_MULTICAST_LOOP: Bad file descriptor\n"
              "setsockopt():IP_DROP_MEMBERSHIP: Bad file descriptor\n");
    EXPECT_TRUE(server_.SetRevBuf(16384));
    EXPECT_GE(server_.GetRevBuf(), 16384);
    EXPECT_GT(server_.GetSndBuf(), 0);
}

TEST_F(UdpSocket, JoinsAndLeavesAGroup) {
    sim::makeEth0({kBoard, kConsole});
    ASSERT_TRUE(server_.AddMemberShip("224.168.1.1", "eth0", true));
    client_.SendTo("224.168.1.1", 5000, "all", 3);
    EXPECT_EQ(received(server_), "all");
    ASSERT_TRUE(server_.DropMemberShip());
    client_.SendTo("224.168.1.1", 5000, "all", 3);
    EXPECT_EQ(received(server_), "");
}

TEST_F(UdpSocket, BroadcastsAndBindsToAnInterface) {
    sim::makeEth0({kBoard});
    UDPSocket sender;
    sender.CreateUDPClient(nullptr, 5000, false, false);
    ASSERT_TRUE(sender.BindLocalAddr("eth0", 5005, true));
    for (const char *interface : {"eth0", static_cast<const char *>(nullptr)}) {
        ASSERT_TRUE(sender.AddBroadCast(interface));
        EXPECT_EQ(sender.SendTo("to all", 6), 6);
        EXPECT_EQ(received(server_), "to all");
    }
    char from[16];
    const sockaddr_in client = server_.GetClientSockaddr();
    EXPECT_STREQ(inet_ntop(AF_INET, &client.sin_addr, from, sizeof from), kBoard);
    EXPECT_EQ(ntohs(client.sin_port), 5005);
}

}  // namespace
