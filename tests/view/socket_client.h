// A client of plain sockets for the tests of the page's server: HTTP requests and WebSocket frames, right
// and wrong ones.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

class Socket {
 public:
  explicit Socket(uint16_t port) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{20, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    is_connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~Socket() { ::close(fd_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  bool is_connected() const { return is_connected_; }
  void send(std::string_view bytes) { ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

  // Up to n bytes, fewer where the other side ends.
  std::string read(size_t n) {
    std::string result = std::move(rest_);
    rest_.clear();
    while (result.size() < n && more(result)) {
    }
    if (result.size() > n) {
      rest_ = result.substr(n);
      result.resize(n);
    }
    return result;
  }
  std::string read_all() { return read(SIZE_MAX); }

  std::string read_through(std::string_view end) {
    std::string result = std::move(rest_);
    rest_.clear();
    size_t at;
    while ((at = result.find(end)) == std::string::npos && more(result)) {
    }
    if (at == std::string::npos) return result;
    rest_ = result.substr(at + end.size());
    result.resize(at + end.size());
    return result;
  }

 private:
  bool more(std::string& to) {
    char buffer[65536];
    const ssize_t n = ::recv(fd_, buffer, sizeof buffer, 0);
    if (n > 0) to.append(buffer, static_cast<size_t>(n));
    return n > 0;
  }

  int fd_;
  bool is_connected_ = false;
  std::string rest_;
};

struct WebFrame {
  int opcode;  // 1 text, 2 binary, 8 close
  std::string bytes;

  int close_code() const {
    return bytes.size() < 2
               ? 0
               : static_cast<unsigned char>(bytes[0]) << 8 | static_cast<unsigned char>(bytes[1]);
  }
};

class WebSocket {
 public:
  WebSocket(uint16_t port, const std::string& path, const std::string& origin) : socket_(port) {
    const std::string host = "127.0.0.1:" + std::to_string(port);
    socket_.send("GET " + path + " HTTP/1.1\r\nHost: " + host +
                 "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n" +
                 (origin.empty() ? "" : "Origin: " + origin + "\r\n") +
                 "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n");
    head_ = socket_.read_through("\r\n\r\n");
  }

  const std::string& head() const { return head_; }
  Socket& socket() { return socket_; }

  void send(int opcode, std::string_view bytes) {
    std::string frame(1, static_cast<char>(0x80 | opcode));
    if (bytes.size() < 126) {
      frame += static_cast<char>(0x80 | bytes.size());
    } else {
      frame += static_cast<char>(0x80 | 127);
      for (int shift = 56; shift >= 0; shift -= 8) frame += static_cast<char>(bytes.size() >> shift & 0xFF);
    }
    frame += std::string(4, '\0');  // the mask: of zeros, as nothing between has to be fooled
    socket_.send(frame.append(bytes));
  }

  // Nothing at the end of the connection.
  std::optional<WebFrame> read() {
    const std::string head = socket_.read(2);
    if (head.size() < 2) return {};
    uint64_t length = head[1] & 0x7F;
    const size_t more = length == 126 ? 2 : length == 127 ? 8 : 0;
    if (more != 0) {
      length = 0;
      for (const char c : socket_.read(more)) length = length << 8 | static_cast<unsigned char>(c);
    }
    return WebFrame{head[0] & 0x0F, socket_.read(length)};
  }

 private:
  Socket socket_;
  std::string head_;
};
