// proxy.node.info.cluster, the Bonjour views and proxy.analyze.file: what
// the simulated cluster and its network look like.
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

#include "../command_args.h"
#include "../command_registry.h"

namespace sim {
namespace {

// The one node of the simulated cluster.
constexpr const char* cluster_name = "Corvane";
constexpr const char* node_name = "sim-node";
constexpr const char* node_host = "127.0.0.1";
// The port a Corvane node listens on in the simulated network.
constexpr std::int64_t node_port = 40400;

vxcore::property_ptr node_struct() {
  auto s = vxbase::make_refcount<vxcore::properties>(false);
  s->set("name", make::text(node_name));
  s->set("host", make::text(node_host));
  s->set("port", make::integer(node_port));
  s->set("cluster", make::text(cluster_name));
  s->set("role", make::text("master"));
  return s;
}

void cluster(const vxnet::vxp::packet&, vxnet::vxp::packet& out, command_context&) {
  auto nodes = vxbase::make_refcount<vxcore::property_list>();
  nodes->push_back(node_struct());
  out.set_property("cluster", make::text(cluster_name));
  out.set_property("nodes", nodes);
}

// The services seen over Bonjour, of the asked cluster (all when absent).
void bonjour(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context&) {
  const auto wanted = args::text(in, "cluster");
  auto services = vxbase::make_refcount<vxcore::property_list>();
  if (!wanted || *wanted == cluster_name) {
    auto s = vxbase::make_refcount<vxcore::properties>(false);
    s->set("name", make::text(node_name));
    s->set("type", make::text("_corvane._tcp"));
    s->set("host", make::text(node_host));
    s->set("port", make::integer(node_port));
    s->set("cluster", make::text(cluster_name));
    services->push_back(s);
  }
  out.set_property("services", services);
}

// "2026-11-22T13:05:00Z"
std::string utc_time_text(std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

// The file's real size and modification time, and a made-up media analysis
// (the simulator decodes nothing) whose container follows the extension.
void analyze(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context&) {
  const std::string file = args::required_text(in, "file");
  struct stat st {};
  if (::stat(file.c_str(), &st) != 0)
    throw command_error("cannot analyze '" + file + "': " + std::strerror(errno));
  if (!S_ISREG(st.st_mode)) throw command_error("cannot analyze '" + file + "': not a file");
  const auto dot = file.find_last_of('.');
  const auto slash = file.find_last_of('/');
  const std::string container =
      dot == std::string::npos || (slash != std::string::npos && dot < slash)
          ? "unknown"
          : file.substr(dot + 1);
  out.set_property("file", make::text(file));
  out.set_property("container", make::text(container));
  out.set_property("size", make::integer(static_cast<std::int64_t>(st.st_size)));
  out.set_property("modified", make::text(utc_time_text(st.st_mtime)));
  out.set_property("duration", make::real(60.0));
  auto video = vxbase::make_refcount<vxcore::properties>(false);
  video->set("codec", make::text("h264"));
  video->set("width", make::integer(1920));
  video->set("height", make::integer(1080));
  video->set("frame-rate", make::real(25.0));
  out.set_property("video", video);
  auto audio = vxbase::make_refcount<vxcore::properties>(false);
  audio->set("codec", make::text("aac"));
  audio->set("channels", make::integer(2));
  audio->set("sample-rate", make::integer(48000));
  out.set_property("audio", audio);
}

}  // namespace

void register_info_commands(command_registry& registry) {
  registry.add("proxy.node.info.cluster", cluster);
  registry.add("proxy.status.bonjour", bonjour);
  registry.add("proxy.network.info.bonjour", bonjour);
  registry.add("proxy.analyze.file", analyze);
}

}  // namespace sim
