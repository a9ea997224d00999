// Builds the benchmark's call payload: the shape of a job submission with
// its task list and an attached settings blob.
#include "payload.h"

#include <string>

namespace bench {

namespace {

constexpr int kTopLevelMembers = 20;
constexpr int kNestedStructs = 50;
constexpr int kBlobBytes = 10 * 1024;

std::string text(int i) {
  return "value " + std::to_string(i) + " of the job <" + std::to_string(i * 7) + "> & co";
}

}  // namespace

XmlRpc::XmlRpcValue makeCallPayload() {
  XmlRpc::XmlRpcValue call;
  for (int i = 0; i < kTopLevelMembers; ++i) {
    const std::string name = "member" + std::to_string(i);
    if (i % 2 == 0) {
      call[name] = text(i);
    } else {
      call[name] = i * 1000 + 7;
    }
  }
  XmlRpc::XmlRpcValue& tasks = call["tasks"];
  tasks.setSize(0);
  for (int i = 0; i < kNestedStructs; ++i) {
    XmlRpc::XmlRpcValue& task = tasks[i];
    task["id"] = 100000 + i;
    task["name"] = "task-" + std::to_string(i);
    task["path"] = "/media/input/clip_" + std::to_string(i) + ".mov";
    task["priority"] = i % 5;
    task["state"] = i % 3 == 0 ? "queued" : "running";
    task["progress"] = (i * 37) % 101;
  }
  std::string blob(kBlobBytes, '\0');
  for (int i = 0; i < kBlobBytes; ++i)
    blob[static_cast<std::size_t>(i)] = static_cast<char>((i * 131 + 17) & 0xff);
  call["settings"] = XmlRpc::XmlRpcValue(blob.data(), kBlobBytes);
  return call;
}

}  // namespace bench
