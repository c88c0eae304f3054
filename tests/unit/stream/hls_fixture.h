// A site with H.264 cameras, requests in processes of their own, and the remux processes they leave behind.
#pragma once

#include <atomic>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>

#include "capture.h"
#include "fixture.h"
#include "shm/ring_writer.h"

// What the module's code finds instead of the system's own. Shared with all processes of a test.
struct World {
  std::atomic<time_t> now;       // the time; 0: the clock's
  std::atomic<int> haste;        // usleep() takes so many times less
  std::atomic<int> slept;        // seconds asked of sleep(), which takes none
  std::atomic<int> atFork;       // a signal that the next remux gets first
  std::atomic<pid_t> forked;     // the newest remux
  std::atomic<int> relayResult;  // of calls to other hosts, noted in kRelayed
};
extern World& g_World;

constexpr char kRelayed[] = "/tmp/segmenter/relayed";
constexpr char kCalls[] = "/tmp/segmenter/calls";  // what the segmenter was given
constexpr char kBytes[] = "/tmp/segmenter/bytes";  // what it read
constexpr char kSuccess[] = R"(>{"success":true})";
constexpr char kFailure[] = R"({"error":{"code":100,"data":{"param1":"","param2":""}},"success":false})";

class HlsTest : public SiteTest {
 protected:
  // Local H.264 cameras with one frame a second, with an unknown rate, without a mobile stream.
  static constexpr int kCam = 20, kUnratedCam = 21, kStreamlessCam = 22;

  void SetUp() override;
  void TearDown() override;  // fails when processes or files of a remux are left

  static std::string Dir(int cam = kCam) { return "/tmp/ndcam/" + std::to_string(cam); }
  static std::string PidPath(int cam = kCam) { return "/tmp/webapivdostm.pid." + std::to_string(cam); }
  static bool IsGone() { return !std::filesystem::exists(Dir()) && !std::filesystem::exists(PidPath()); }
  static void Touch(time_t when, int cam = kCam);  // the pid file
  static void SetMode(const std::string& mode) { WriteFile("/tmp/segmenter/mode", mode); }

  // Starts a request; its output ends in /tmp/answer. `params` begins with the camera's id.
  static Child Start(const std::string& method, const std::string& params);
  // The whole answer: what stood in the buffer before (">"), what the handler printed, its JSON.
  static std::string Ask(const std::string& method, const std::string& params);

  // The process the pid file names, once there is one other than `other`.
  static pid_t RemuxPid(pid_t other = 0, int cam = kCam);
  static bool Ends(pid_t pid);  // and by itself
  static bool Runs(pid_t pid);  // still, after a while

  static bool Until(const std::function<bool()>& condition);  // at most for so long that silence would end a remux
  static bool Logged(const std::string& line) { return ReadFile(oculora::kLogPath).find(line) != std::string::npos; }

  void Write(const std::string& frame, bool key, int cam = kCam);
  // A camera that sends key frames until the object is gone.
  Child Camera(useconds_t periodUs = 2000);

  static std::map<std::string, std::string> env;  // of requests; SetUp gives them HTTP_HOST
  oculora::RingWriter rings[3];                   // of the cameras
};
