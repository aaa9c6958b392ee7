// The parts of a stream that replaces its content again and again (multipart/x-mixed-replace, RFC
// 2046 for the borders), with or without a length of each part.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "gateway/rfb/protocol.h"

namespace gateway {

class MultipartReader {
  public:
    /// boundary: as the stream's header says it; streamers differ on the dashes before it. most:
    /// bytes of a part; longer ones are left out. Keeps a part and the newest one, in memory for
    /// three at most.
    MultipartReader(const std::string &boundary, std::size_t most);

    /// Throws rfb::ProtocolError for a part whose header does not end.
    void take(const std::uint8_t *bytes, std::size_t count);
    /// The last part that is complete, once.
    std::optional<rfb::Bytes> newest();
    /// A part was left out since the last call.
    bool leftOut();

  private:
    using Step = bool (MultipartReader::*)();
    bool findBorder();
    bool readHeader();
    void readLength(const std::string &line);
    bool readCounted();
    bool readUntilBorder();
    bool skip();
    std::size_t find(const std::string &what, std::size_t from) const;
    void drop(std::size_t count);
    void finish(std::size_t size);

    const std::string border_;
    const std::size_t most_;
    rfb::Bytes buffer_;
    std::size_t begin_ = 0, looked_ = 0;  ///< in buffer_; before looked_ there is no border
    Step step_ = &MultipartReader::findBorder;
    std::size_t size_ = 0;  ///< of the part, or what of it is to be skipped
    bool tooLong_ = false;
    std::optional<rfb::Bytes> newest_;
    bool leftOut_ = false;
};

}  // namespace gateway
