// The page's server over real sockets: what it serves, whom it refuses, what hostile clients can do.
#include "view/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <thread>

#include "messages.h"
#include "samples.h"
#include "socket_client.h"
#include "view/gate.h"
#include "view/tile.h"

namespace {

using namespace kvalo_view;
using testing::HasSubstr;
using testing::StartsWith;

struct Site {
  Store store;
  std::unique_ptr<Server> server;
  std::string address, path;
  uint16_t port;

  Site() {
    ServerOptions options;
    options.asset = [](const std::string& name) -> std::optional<std::string> {
      if (name == "index.html") return "<!doctype html>";
      if (name == "main.js") return "1";
      return {};
    };
    server = std::make_unique<Server>(store, std::move(options));
    store.on_change = [this] { server->changed(); };
    address = server->address();
    const size_t colon = address.find(':', 6), slash = address.find('/', colon);
    port = static_cast<uint16_t>(std::stoi(address.substr(colon + 1)));
    path = address.substr(slash);
  }

  std::string get(const std::string& target, const std::string& headers = "",
                  const std::string& method = "GET") {
    const std::string host =
        headers.find("Host:") == std::string::npos ? "Host: 127.0.0.1:" + std::to_string(port) + "\r\n" : "";
    Socket socket(port);
    socket.send(method + " " + target + " HTTP/1.1\r\n" + host + headers + "Connection: close\r\n\r\n");
    return socket.read_all();
  }
  std::string origin() const { return "http://127.0.0.1:" + std::to_string(port); }
  WebSocket open() { return WebSocket(port, path + "s", origin()); }
};

std::string ask(uint8_t kind, uint32_t seq, uint32_t chart, double a, double b, uint16_t width = 100) {
  std::string frame(48, '\0');
  const auto put = [&](size_t at, const auto& value) {
    std::memcpy(frame.data() + at, &value, sizeof value);
  };
  put(0, kind);
  put(4, seq);
  put(8, chart);
  put(12, width);
  put(14, width);
  put(16, a);
  put(24, b);
  put(32, std::nan(""));
  put(40, std::nan(""));
  return frame;
}

// Frames up to the end of a batch, which is acknowledged.
std::vector<WebFrame> batch(WebSocket& page) {
  std::vector<WebFrame> frames;
  while (auto frame = page.read()) {
    frames.push_back(*frame);
    const size_t at = frame->bytes.find("\"end\",\"batch\":");
    if (frame->opcode == 1 && at != std::string::npos) {
      page.send(2, ask(4, static_cast<uint32_t>(std::stoul(frame->bytes.substr(at + 14))), 0, 0, 0));
      break;
    }
    if (frame->opcode == 8) break;
  }
  return frames;
}

// The first tile with this seq.
Tile tile_of(WebSocket& page, uint32_t seq) {
  for (int i = 0; i < 50; ++i) {
    for (const WebFrame& frame : batch(page)) {
      Tile tile;
      if (frame.opcode != 2 || frame.bytes.size() < sizeof tile.header) continue;
      std::memcpy(&tile.header, frame.bytes.data(), sizeof tile.header);
      tile.data = frame.bytes.substr(sizeof tile.header);
      if (tile.header.seq == seq) return tile;
    }
  }
  ADD_FAILURE() << "no tile " << seq;
  return {};
}

TEST(Gate, KnowsItsAddressesOnly) {
  const std::string token = new_token();
  EXPECT_EQ(token.size(), 32U);
  EXPECT_NE(token, new_token());
  const Gate gate(token, 80);
  const std::string start = "/k/" + token + "/";
  for (const char* good :
       {"", "s", "a/main.js", "a/x_1-2.css", "chart/12.csv", "chart/12.png?t0=1&t1=2", "?x"}) {
    EXPECT_TRUE(gate.target(start + good)) << good;
  }
  for (const char* bad : {"x", "a/", "a/../x", "a/.x", "a/x/y", "a/%2e", "chart/", "chart/x.csv",
                          "chart/1.exe", "chart/99999999999999999999.csv", "chart/1.csv?t0=2&t1=1",
                          "chart/1.csv?t0=x", "chart/1.csv?q=1", "chart/1.csv?t0=nan", "//"}) {
    EXPECT_FALSE(gate.target(start + bad)) << bad;
  }
  std::string wrong = token;
  wrong.back() = wrong.back() == '0' ? '1' : '0';
  for (const std::string& bad :
       {"/k/" + wrong + "/", "/k/" + token, std::string("/"), std::string(), "/k//" + token}) {
    EXPECT_FALSE(gate.target(bad)) << bad;
  }
}

TEST(Server, ServesThePageToItsOwnAddressOnly) {
  Site site;
  const std::string page = site.get(site.path);
  EXPECT_THAT(page, StartsWith("HTTP/1.1 200"));
  EXPECT_THAT(page, HasSubstr("Content-Security-Policy: default-src 'self'"));
  EXPECT_THAT(page, HasSubstr("Referrer-Policy: no-referrer"));
  EXPECT_THAT(page, HasSubstr("text/html"));
  EXPECT_THAT(page, testing::EndsWith("\r\n\r\n<!doctype html>"));
  EXPECT_THAT(site.get(site.path + "a/main.js", "Host: localhost:" + std::to_string(site.port) + "\r\n"),
              HasSubstr("text/javascript"));
  EXPECT_THAT(site.get(site.path + "a/other.js"), StartsWith("HTTP/1.1 404"));
  EXPECT_THAT(site.get(site.path, "", "HEAD"), HasSubstr("Content-Length: 15\r\n"));
  EXPECT_THAT(site.get(site.path, "", "POST"), StartsWith("HTTP/1.1 405"));
  EXPECT_THAT(site.get("/"), StartsWith("HTTP/1.1 403"));
  for (const char* headers : {"Host: evil.example\r\n", "Host: 127.0.0.1\r\n",
                              "Origin: http://evil.example\r\n", "Origin: null\r\n"}) {
    EXPECT_THAT(site.get(site.path, headers), StartsWith("HTTP/1.1 403")) << headers;
  }
  EXPECT_THAT(site.get(site.path + "s"), StartsWith("HTTP/1.1 403"));
  for (const std::string& origin : {std::string(), std::string("http://evil.example"), std::string("null")}) {
    EXPECT_THAT(WebSocket(site.port, site.path + "s", origin).head(), StartsWith("HTTP/1.1 403")) << origin;
  }
}

TEST(Server, AnswersViewsAndPushesNewData) {
  Site site;
  const TestSamples s = random_samples(20'000, 1, true);
  plot(site.store, 77, 1, s.x, s.y);
  WebSocket page = site.open();
  ASSERT_THAT(page.head(), StartsWith("HTTP/1.1 101"));
  const auto first = batch(page);
  ASSERT_EQ(first.size(), 2U);
  EXPECT_THAT(first[0].bytes, HasSubstr("\"id\":\"77\""));
  const uint32_t key = site.store.state()->chart(77)->key;
  page.send(2, ask(1, 5, key, s.x.front(), s.x.back()));
  const Tile tile = tile_of(page, 5);
  EXPECT_EQ(tile.header.form, Form::columns);
  EXPECT_EQ(tile.data.size(), 1700U);
  page.send(2, ask(2, 6, key, s.x[50], 0));
  std::string values;
  for (int i = 0; i < 50 && values.empty(); ++i) {
    for (const WebFrame& frame : batch(page)) {
      if (frame.bytes.starts_with("{\"type\":\"values\"")) values = frame.bytes;
    }
  }
  EXPECT_THAT(values, HasSubstr("\"seq\":6"));
  plot(site.store, 77, 1, {0, 1}, {5, 6});
  Tile pushed;
  while (pushed.header.version != 2) pushed = tile_of(page, 5);
  EXPECT_TRUE(pushed.header.flags & tile_push);
  EXPECT_EQ(site.server->clients(), 1U);
}

TEST(Server, DownloadsText) {
  Site site;
  std::vector<double> x(50'000), y(x.size());
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i);
  plot(site.store, 77, 1, x, y);
  const std::string all = site.get(site.path + "chart/77.csv");
  EXPECT_THAT(all, HasSubstr("Transfer-Encoding: chunked"));
  EXPECT_GT(std::count(all.begin(), all.end(), '\n'), 50'000);
  EXPECT_THAT(site.get(site.path + "chart/77.csv?t0=7&t1=8"), HasSubstr("time,s1\r\n7,0\r\n8,0\r\n"));
  EXPECT_THAT(site.get(site.path + "chart/78.csv"), StartsWith("HTTP/1.1 404"));
  EXPECT_THAT(site.get(site.path + "chart/77.png"), StartsWith("HTTP/1.1 501"));
}

TEST(Server, EndsConversationsThatBreakTheRules) {
  Site site;
  const struct {
    int opcode;
    std::string bytes;
    int code;
  } cases[] = {{1, "{}", 1003},
               {2, "short", 1002},
               {2, ask(9, 0, 0, 0, 0), 1002},
               {2, std::string(70'000, 'x'), 1009}};
  for (const auto& one : cases) {
    WebSocket page = site.open();
    page.send(one.opcode, one.bytes);
    std::optional<WebFrame> frame;
    while ((frame = page.read()) && frame->opcode != 8) {
    }
    ASSERT_TRUE(frame) << one.code;
    EXPECT_EQ(frame->close_code(), one.code);
  }
  EXPECT_THAT(site.get(site.path), StartsWith("HTTP/1.1 200"));
}

TEST(Server, SurvivesRubbishAndSuddenEnds) {
  Site site;
  const TestSamples s = random_samples(100'000, 1, true);
  plot(site.store, 77, 1, s.x, s.y);
  std::mt19937 random(7);
  for (int i = 0; i < 60; ++i) {
    Socket socket(site.port);
    std::string rubbish(random() % 20'000, '\0');
    for (char& c : rubbish) c = static_cast<char>(random());
    socket.send(rubbish);
  }
  for (int i = 0; i < 20; ++i) {
    WebSocket page = site.open();
    std::string rubbish(1 + random() % 300, '\0');
    for (char& c : rubbish) c = static_cast<char>(random());
    if (i % 2 == 0) {
      page.socket().send(rubbish);  // no frame at all
    } else {
      page.send(2, ask(1, 1, 1, 0, 1000, 16000));  // and leaves without reading
    }
  }
  EXPECT_THAT(site.get(site.path), StartsWith("HTTP/1.1 200"));
  while (site.server->clients() != 0) std::this_thread::yield();
  WebSocket page = site.open();
  EXPECT_EQ(batch(page).size(), 2U);
}

TEST(Server, SlowPagesGetTheNewestStateOnly) {
  Site site;
  plot(site.store, 77, 1, {0, 1}, {0, 1});
  WebSocket page = site.open();
  auto frame = page.read();  // and no acknowledgement
  for (int i = 2; i <= 500; ++i) plot(site.store, 77, 1, {0, 1}, {0, 1.0 * i});
  frame = page.read();
  EXPECT_THAT(frame->bytes, HasSubstr("\"end\""));
  page.send(2, ask(4, 1, 0, 0, 0));
  frame = page.read();
  EXPECT_THAT(frame->bytes, HasSubstr("\"version\":500"));
}

TEST(Server, NoMoreThanSixteenPages) {
  Site site;
  std::vector<std::unique_ptr<WebSocket>> pages;
  for (int i = 0; i < 16; ++i) {
    pages.push_back(std::make_unique<WebSocket>(site.port, site.path + "s", site.origin()));
    EXPECT_THAT(pages.back()->head(), StartsWith("HTTP/1.1 101")) << i;
  }
  EXPECT_THAT(site.open().head(), StartsWith("HTTP/1.1 503"));
  EXPECT_FALSE(site.server->wait_left(std::chrono::milliseconds(10)));
  pages.clear();
  EXPECT_TRUE(site.server->wait_left(std::chrono::seconds(20)));
  EXPECT_EQ(site.server->clients(), 0U);
}

TEST(Server, SaysGoodbye) {
  Site site;
  WebSocket page = site.open();
  batch(page);
  site.store.on_change = nullptr;
  std::thread ending([&] { site.server.reset(); });
  auto frame = page.read();
  EXPECT_EQ(frame->bytes, "{\"type\":\"gone\"}");
  frame = page.read();
  EXPECT_EQ(frame->close_code(), 1001);
  page.send(8, frame->bytes);
  ending.join();
  EXPECT_FALSE(Socket(site.port).is_connected());
}

TEST(Server, AChildProcessHasNone) {
  Site site;
  plot(site.store, 77, 1, {0, 1}, {0, 1});
  WebSocket page = site.open();
  batch(page);
  int pipe_ends[2];
  ASSERT_EQ(::pipe(pipe_ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(20);
    plot(site.store, 78, 1, {0, 1}, {0, 1});
    const bool fine = site.server->wait_left(std::chrono::milliseconds(0)) && site.server->clients() == 0;
    site.server.reset();
    char byte;
    const bool ended = ::read(pipe_ends[0], &byte, 1) == 1;  // lives on while the parent stops its server
    ::_exit(fine && ended ? 0 : 1);
  }
  EXPECT_THAT(site.get(site.path), StartsWith("HTTP/1.1 200"));
  site.store.on_change = nullptr;
  std::thread ending([&] { site.server.reset(); });
  while (page.read()) {
  }
  ending.join();
  EXPECT_FALSE(Socket(site.port).is_connected());
  EXPECT_EQ(::write(pipe_ends[1], "x", 1), 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ::close(pipe_ends[0]);
  ::close(pipe_ends[1]);
}

TEST(Server, PlotsWhilePagesRead) {  // for the thread sanitizer
  Site site;
  std::atomic<bool> is_done{false};
  std::thread script([&] {
    for (unsigned i = 0; i < 60; ++i) {
      const TestSamples s = random_samples(5000, i);
      for (const char* kind : {"chart2d_line", "chart2d_fft", "chart2d_hist"}) {
        plot(site.store, static_cast<uint64_t>(kind[8]), 1, s.x, s.y, kind);
      }
      if (i % 20 == 19) send(site.store, "misc_close", misc("charts"));
    }
    is_done = true;
  });
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      WebSocket page = site.open();
      for (uint32_t seq = 1; !is_done; ++seq) {
        for (uint32_t key = 1; key < 10; ++key) page.send(2, ask(1, seq, key, 0, 1000));
        plot(site.store, 1000, 1, {0, 1}, {0, 1});
        batch(page);
      }
    });
  }
  script.join();
  for (auto& reader : readers) reader.join();
}

}  // namespace
