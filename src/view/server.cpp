// The server over Boost.Beast, which is included here and nowhere else.
#include "view/server.h"

#include <unistd.h>

// Boost's own headers forget these two.
#include <exception>
#include <utility>

#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

#include "runtime/log.h"
#include "view/client.h"
#include "view/csv.h"
#include "view/gate.h"

namespace kvalo_view {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using error_code = boost::system::error_code;

constexpr size_t most_connections = 64;
constexpr size_t most_frame = 64 * 1024;
constexpr size_t most_header = 16 * 1024;
constexpr auto patience = std::chrono::seconds(30);  // with one request or answer
constexpr auto reload_time = std::chrono::milliseconds(1500);
constexpr auto farewell_time = std::chrono::seconds(1);
constexpr auto batch_time = std::chrono::milliseconds(50);  // after which no further view is begun

const char* type_of(std::string_view name) {
  const std::string_view ending = name.substr(std::min(name.rfind('.'), name.size()));
  if (ending == ".html") return "text/html; charset=utf-8";
  if (ending == ".js" || ending == ".mjs") return "text/javascript; charset=utf-8";
  if (ending == ".css") return "text/css; charset=utf-8";
  if (ending == ".json" || ending == ".map") return "application/json";
  if (ending == ".svg") return "image/svg+xml";
  if (ending == ".png") return "image/png";
  if (ending == ".csv") return "text/csv; charset=utf-8";
  if (ending == ".woff2") return "font/woff2";
  return "application/octet-stream";
}

// A thread that does what is posted until it is told to stop.
class Worker {
 public:
  Worker() : guard_(net::make_work_guard(context_)), thread_([this] { run(); }) {}
  ~Worker() { stop(); }

  net::io_context& context() { return context_; }
  template <typename Task>
  void post(Task&& task) {
    net::post(context_, std::forward<Task>(task));
  }
  void stop() {
    context_.stop();
    if (thread_.joinable()) thread_.join();
  }

 private:
  void run() {
    while (!context_.stopped()) {
      try {
        context_.run();
      } catch (const std::exception& error) {
        mirn3::log::write(mirn3::log::error, std::string("page server: ") + error.what());
      }
    }
  }

  net::io_context context_{1};
  net::executor_work_guard<net::io_context::executor_type> guard_;
  std::thread thread_;
};

}  // namespace

class Http;
class Conversation;

struct Server::Impl {
  Impl(Store& its_store, ServerOptions its_options) : store(its_store), options(std::move(its_options)) {}

  void listen();
  void accept();
  void pump_all();
  void farewell();
  void count(int more);

  Store& store;
  const ServerOptions options;
  const pid_t process = ::getpid();
  std::optional<Gate> gate;
  std::atomic<bool> has_posted_change{false};

  // The talking thread's.
  size_t connections = 0;
  std::set<Conversation*> conversations;
  uint64_t changes = 0;  // of views, as far as is known here
  bool is_leaving = false;

  // The computing thread's.
  Views views;

  mutable std::mutex count_guard;
  std::condition_variable count_changed;
  size_t clients = 0;
  bool has_had_client = false;
  Clock::time_point left_at;

  std::optional<Worker> drawing, computing, talking;
  std::optional<tcp::acceptor> acceptor;
  std::optional<ParentSocket> inherited;
};

// One page's WebSocket.
class Conversation : public std::enable_shared_from_this<Conversation> {
 public:
  Conversation(Server::Impl& server, beast::tcp_stream stream, std::shared_ptr<ParentSocket> socket)
      : server_(server), socket_(std::move(socket)), ws_(std::move(stream)), timer_(ws_.get_executor()) {
    server_.conversations.insert(this);
    server_.count(1);
  }
  ~Conversation() {
    server_.conversations.erase(this);
    server_.count(-1);
  }
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  void start(const http::request<http::string_body>& request) {
    beast::get_lowest_layer(ws_).expires_never();
    ws_.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    ws_.set_option(websocket::stream_base::decorator(
        [policy = server_.gate->content_policy()](websocket::response_type& response) {
          response.set("Content-Security-Policy", policy);
          response.set(http::field::server, "kvalo");
        }));
    ws_.read_message_max(most_frame);
    ws_.async_accept(request, [self = shared_from_this()](error_code error) {
      if (error) return;
      self->is_open_ = true;
      self->pump();
      self->read();
    });
  }

  // Sends what is due.
  void pump() {
    if (!is_open_ || server_.is_leaving) return;
    auto batch = client_.next(server_.store.state(), server_.changes, Clock::now());
    if (batch) {
      compute(std::move(*batch));
    } else if (const auto at = client_.later()) {
      timer_.expires_at(*at);
      timer_.async_wait([self = shared_from_this()](error_code error) {
        if (!error) self->pump();
      });
    }
  }

  void farewell() {
    out_.push_back({true, "{\"type\":\"gone\"}"});
    is_leaving_ = true;
    timer_.cancel();
    if (!is_open_) {
      beast::get_lowest_layer(ws_).close();
    } else if (!is_writing_) {
      write();
    }
  }

 private:
  void read() {
    ws_.async_read(buffer_, [self = shared_from_this()](error_code error, size_t) {
      if (error) return self->end();
      const auto data = self->buffer_.cdata();
      const std::string_view frame(static_cast<const char*>(data.data()), data.size());
      if (!self->ws_.got_binary()) return self->refuse(websocket::close_code::unknown_data);
      if (!self->client_.take(frame, *self->server_.store.state())) {
        return self->refuse(websocket::close_code::protocol_error);
      }
      self->buffer_.consume(self->buffer_.size());
      self->pump();
      self->read();
    });
  }

  void compute(Batch batch) {
    server_.computing->post([self = shared_from_this(), batch = std::move(batch)]() mutable {
      Server::Impl& server = self->server_;
      std::shared_ptr<Answer> result;
      try {
        const StateText about{server.options.title, static_cast<bool>(server.options.picture)};
        result = std::make_shared<Answer>(answer(batch, server.views, about, batch_time));
      } catch (const std::exception& error) {  // of memory
        mirn3::log::write(mirn3::log::error, std::string("page server: ") + error.what());
      }
      batch = {};  // the state may be the last to hold samples: they go on this thread
      server.talking->post([self = std::move(self), result = std::move(result)] {
        if (!result) return self->refuse(websocket::close_code::internal_error);
        self->send(std::move(*result));
      });
    });
  }

  void send(Answer&& answer) {
    client_.answered(answer);
    const bool has_news = server_.changes != answer.changes;
    server_.changes = answer.changes;
    if (!is_leaving_) {
      for (Frame& frame : answer.frames) out_.push_back(std::move(frame));
      if (!is_writing_) write();
    }
    if (has_news) server_.pump_all();
  }

  void write() {
    is_writing_ = true;
    if (out_.empty()) {
      is_writing_ = false;
      if (is_leaving_) refuse(websocket::close_code::going_away);
      return;
    }
    ws_.text(out_.front().is_text);
    ws_.async_write(net::buffer(out_.front().bytes), [self = shared_from_this()](error_code error, size_t) {
      if (error) return self->end();
      self->out_.pop_front();
      self->write();
    });
  }

  void refuse(websocket::close_code code) {
    if (!is_open_) return;
    is_open_ = false;
    timer_.cancel();
    ws_.async_close(code, [self = shared_from_this()](error_code) {});
  }

  void end() {
    is_open_ = false;
    out_.clear();
    timer_.cancel();
    beast::get_lowest_layer(ws_).cancel();
  }

  Server::Impl& server_;
  std::shared_ptr<ParentSocket> socket_;
  websocket::stream<beast::tcp_stream> ws_;
  net::steady_timer timer_;
  beast::flat_buffer buffer_;
  Client client_;
  std::deque<Frame> out_;
  bool is_open_ = false;
  bool is_writing_ = false;
  bool is_leaving_ = false;
};

// One connection that asks for files, one request after the other; or becomes a conversation.
class Http : public std::enable_shared_from_this<Http> {
 public:
  Http(Server::Impl& server, tcp::socket socket)
      : server_(server),
        socket_(std::make_shared<ParentSocket>(socket.native_handle())),
        stream_(std::move(socket)) {
    ++server_.connections;
  }
  ~Http() { --server_.connections; }
  Http(const Http&) = delete;
  Http& operator=(const Http&) = delete;

  void read() {
    parser_.emplace();
    parser_->header_limit(most_header);
    parser_->body_limit(0);
    stream_.expires_after(patience);
    http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](error_code error, size_t) {
      if (!error) self->serve(self->parser_->get());
    });
  }

 private:
  using Request = http::request<http::string_body>;

  void serve(const Request& request) {
    const auto text = [](beast::string_view view) { return std::string_view(view.data(), view.size()); };
    const Gate& gate = *server_.gate;
    const auto origin = request.find(http::field::origin);
    const bool is_foreign = origin != request.end() && !gate.is_own_origin(text(origin->value()));
    const auto target = gate.target(text(request.target()));
    if (!gate.is_own_host(text(request[http::field::host])) || is_foreign || !target) {
      return reply(http::status::forbidden, "text/plain", "This address is not valid here.\n");
    }
    is_head_ = request.method() == http::verb::head;
    if (!is_head_ && request.method() != http::verb::get) {
      return reply(http::status::method_not_allowed, "text/plain", "Only GET and HEAD are known here.\n");
    }
    switch (target->type) {
      case Target::Type::conversation:
        return converse(request, origin != request.end());
      case Target::Type::page:
      case Target::Type::asset:
        return asset(target->name);
      case Target::Type::download:
        return download(*target);
    }
  }

  void converse(const Request& request, bool has_origin) {
    if (!websocket::is_upgrade(request) || !has_origin) {
      return reply(http::status::forbidden, "text/plain", "This address is for the page's WebSocket.\n");
    }
    if (server_.conversations.size() >= Server::most_clients) {
      return reply(http::status::service_unavailable, "text/plain", "Too many pages are open; close one.\n");
    }
    std::make_shared<Conversation>(server_, std::move(stream_), socket_)->start(request);
  }

  void asset(const std::string& name) {
    auto content = server_.options.asset ? server_.options.asset(name) : std::nullopt;
    if (!content) return reply(http::status::not_found, "text/plain", "There is no such file.\n");
    reply(http::status::ok, type_of(name), std::move(*content));
  }

  void download(const Target& target) {
    auto chart = server_.store.state()->chart(target.chart);
    if (!chart) return reply(http::status::not_found, "text/plain", "There is no such chart.\n");
    if (target.format == "csv") return csv(std::move(chart), target.times);
    if (!server_.drawing) {
      return reply(http::status::not_implemented, "text/plain",
                   "Pictures need kvalo_view with matplotlib.\n");
    }
    stream_.expires_never();
    server_.drawing->post([self = shared_from_this(), target] {
      auto status = http::status::ok;
      std::string content;
      try {
        content = self->server_.options.picture(target.chart, target.format, target.times);
      } catch (const std::exception& error) {
        status = http::status::internal_server_error;
        content = error.what();
      }
      self->server_.talking->post(
          [self, status, content = std::move(content), format = target.format]() mutable {
            self->reply(status, status == http::status::ok ? type_of("." + format) : "text/plain",
                        std::move(content));
          });
    });
  }

  template <typename Response>
  void set_common(Response& response, const char* type) {
    response.set(http::field::server, "kvalo");
    response.set(http::field::content_type, type);
    response.set(http::field::cache_control, "no-store");
    response.set("Content-Security-Policy", server_.gate->content_policy());
    response.set("Referrer-Policy", "no-referrer");
    response.set("X-Content-Type-Options", "nosniff");
  }

  void reply(http::status status, const char* type, std::string content) {
    auto response = std::make_shared<http::response<http::string_body>>(status, parser_->get().version());
    set_common(*response, type);
    response->keep_alive(status == http::status::ok && parser_->get().keep_alive());
    response->content_length(content.size());
    if (!is_head_) response->body() = std::move(content);
    stream_.expires_after(patience);
    http::async_write(stream_, *response, [self = shared_from_this(), response](error_code error, size_t) {
      if (error || response->need_eof()) return self->close();
      self->read();
    });
  }

  void csv(std::shared_ptr<const Chart> chart, Range times) {
    using Head = http::response<http::empty_body>;
    auto head = std::make_shared<Head>(http::status::ok, 11U);
    set_common(*head, type_of(".csv"));
    head->set(http::field::content_disposition,
              "attachment; filename=\"chart-" + std::to_string(chart->id) + ".csv\"");
    head->chunked(true);
    head->keep_alive(false);
    auto writer = std::make_shared<http::response_serializer<http::empty_body>>(*head);
    auto rows = std::make_shared<Csv>(std::move(chart), times);
    stream_.expires_after(patience);
    http::async_write_header(stream_, *writer,
                             [self = shared_from_this(), head, writer, rows](error_code error, size_t) {
                               if (error || self->is_head_) return self->close();
                               self->csv_rows(rows);
                             });
  }

  void csv_rows(const std::shared_ptr<Csv>& rows) {
    piece_ = rows->next();
    stream_.expires_after(patience);
    if (piece_.empty()) {
      net::async_write(stream_, http::make_chunk_last(),
                       [self = shared_from_this()](error_code, size_t) { self->close(); });
      return;
    }
    net::async_write(stream_, http::make_chunk(net::buffer(piece_)),
                     [self = shared_from_this(), rows](error_code error, size_t) {
                       if (!error) self->csv_rows(rows);
                     });
  }

  void close() {
    error_code ignored;
    stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
  }

  Server::Impl& server_;
  std::shared_ptr<ParentSocket> socket_;
  beast::tcp_stream stream_;
  beast::flat_buffer buffer_{most_header + 1024};
  std::optional<http::request_parser<http::string_body>> parser_;
  std::string piece_;
  bool is_head_ = false;
};

void Server::Impl::listen() {
  try {
    talking.emplace();
    computing.emplace();
    if (options.picture) drawing.emplace();
    acceptor.emplace(talking->context(), tcp::endpoint(net::ip::address_v4::loopback(), options.port));
    inherited.emplace(acceptor->native_handle());
    gate.emplace(new_token(), acceptor->local_endpoint().port());
  } catch (const boost::system::system_error& error) {
    throw std::system_error(error.code().value(), std::generic_category(),
                            "The page server cannot listen on 127.0.0.1");
  }
  talking->post([this] { accept(); });
}

void Server::Impl::accept() {
  acceptor->async_accept([this](error_code error, tcp::socket socket) {
    if (error == net::error::operation_aborted) return;
    if (!error && connections + conversations.size() < most_connections) {
      error_code ignored;
      socket.set_option(tcp::no_delay(true), ignored);
      std::make_shared<Http>(*this, std::move(socket))->read();
    }
    accept();
  });
}

void Server::Impl::pump_all() {
  // Sending may end a conversation, so not over the set itself.
  std::vector<std::weak_ptr<Conversation>> all;
  for (Conversation* one : conversations) all.push_back(one->weak_from_this());
  for (const auto& one : all) {
    if (const auto conversation = one.lock()) conversation->pump();
  }
}

void Server::Impl::farewell() {
  is_leaving = true;
  error_code ignored;
  acceptor->close(ignored);
  std::vector<std::weak_ptr<Conversation>> all;
  for (Conversation* one : conversations) all.push_back(one->weak_from_this());
  for (const auto& one : all) {
    if (const auto conversation = one.lock()) conversation->farewell();
  }
}

void Server::Impl::count(int more) {
  const std::lock_guard lock(count_guard);
  clients = static_cast<size_t>(static_cast<int>(clients) + more);
  if (more > 0) has_had_client = true;
  if (clients == 0) left_at = Clock::now();
  count_changed.notify_all();
}

Server::Server(Store& store, ServerOptions options)
    : impl_(std::make_unique<Impl>(store, std::move(options))) {
  impl_->listen();
}

Server::~Server() {
  if (::getpid() != impl_->process) {
    impl_.release();  // a child: the threads are not there to be joined
    return;
  }
  impl_->talking->post([this] { impl_->farewell(); });
  {
    std::unique_lock lock(impl_->count_guard);
    impl_->count_changed.wait_for(lock, farewell_time, [this] { return impl_->clients == 0; });
  }
  // Nobody posts to a thread that is gone: those that are posted to stop last.
  if (impl_->drawing) impl_->drawing->stop();
  impl_->computing->stop();
  impl_->talking->stop();
  impl_->acceptor.reset();
}

std::string Server::address() const { return impl_->gate->address(); }

void Server::changed() {
  if (::getpid() != impl_->process || impl_->has_posted_change.exchange(true)) return;
  impl_->talking->post([impl = impl_.get()] {
    impl->has_posted_change = false;
    impl->pump_all();
    impl->computing->post([impl] { impl->views.forget(*impl->store.state()); });
  });
}

size_t Server::clients() const {
  if (::getpid() != impl_->process) return 0;
  const std::lock_guard lock(impl_->count_guard);
  return impl_->clients;
}

bool Server::wait_left(std::chrono::milliseconds most) {
  if (::getpid() != impl_->process) return true;
  const auto until = Clock::now() + most;
  std::unique_lock lock(impl_->count_guard);
  while (true) {
    const auto now = Clock::now();
    const bool is_empty = impl_->has_had_client && impl_->clients == 0;
    if (is_empty && now >= impl_->left_at + reload_time) return true;
    if (now >= until) return false;
    impl_->count_changed.wait_until(lock, is_empty ? std::min(until, impl_->left_at + reload_time) : until);
  }
}

std::function<std::optional<std::string>(const std::string&)> folder_assets(std::string folder) {
  return [folder = std::move(folder)](const std::string& name) -> std::optional<std::string> {
    std::ifstream file(folder + "/" + name, std::ios::binary);
    if (!file) return {};
    std::ostringstream content;
    content << file.rdbuf();
    if (!file || content.str().empty()) return {};
    return std::move(content).str();
  };
}

}  // namespace kvalo_view
