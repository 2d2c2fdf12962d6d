// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

struct sd_bus;

/// Our ends of the peers, and their processes.
namespace bench {

/// A program in the folder of the bench's services, given `descriptor` as its descriptor 3. Killed
/// with this.
class Child {
  public:
    Child(const std::string& program, const char* mode, int descriptor);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t process() const { return process_; }

  private:
    pid_t process_ = -1;
};

/// A connected pair of sockets whose other end a bench_peer has.
class PeerStream {
  public:
    explicit PeerStream(const char* mode);
    ~PeerStream();
    PeerStream(const PeerStream&) = delete;
    PeerStream& operator=(const PeerStream&) = delete;
    int descriptor() const { return ours_; }

  private:
    PeerStream(const char* mode, std::vector<int> pair);
    int ours_;
    Child child_;
};

/// Blocking calls of send() and recv(), 64 bytes each. The results are nanoseconds.
class RawEcho {
  public:
    double roundTrips(std::size_t count);
    /// With `outstanding` messages under way, each sent by itself.
    double pipelined(std::size_t count, std::size_t outstanding);

  private:
    PeerStream stream_{"echo"};
};

/// D-Bus between two processes without a daemon.
class BusEcho {
  public:
    BusEcho();
    ~BusEcho();
    BusEcho(const BusEcho&) = delete;
    BusEcho& operator=(const BusEcho&) = delete;
    double roundTrips(std::size_t count);

  private:
    PeerStream stream_{"bus"};
    sd_bus* bus_ = nullptr;
};

/// A listening socket at `path`.
int listenAt(const std::string& path);

/// A listening socket, each time a new connection and one round trip.
class RawConnect {
  public:
    explicit RawConnect(std::string path);
    double connects(std::size_t count);

  private:
    std::string path_;
    int listening_;
    Child child_;
};

}  // namespace bench
