// mxpeg-camera: a generated MxPEG camera. Exit code 0: done or told to stop, 1: failed, 2: called wrongly.
#include <sys/signalfd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "camera.h"
#include "front/listener.h"
#include "recorder/av/quiet_log.h"
#include "recorder/clock.h"
#include "recorder/sources/address.h"
#include "server.h"

namespace oculora {
namespace {

constexpr double kUsualSeconds = 10;

struct Options {
  CameraSettings camera;
  std::string size, file, bind = "127.0.0.1";
  int port = -1;
  double seconds = 0;
  bool noVideo = false;
};

// Becomes readable when the process is asked to stop.
UniqueFd StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return UniqueFd(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

bool IsStopped(const UniqueFd& stop) {
  pollfd waiting{stop.Get(), POLLIN, 0};
  return poll(&waiting, 1, 0) > 0;
}

int Fail(const std::string& reason) {
  fprintf(stderr, "mxpeg-camera: %s\n", reason.c_str());
  return 1;
}

// As fast as this machine can; the time stamps begin now.
int WriteFile(Camera& camera, const Options& options, const UniqueFd& stop) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(options.file.c_str(), "wbe"), fclose);
  if (file == nullptr) return Fail(options.file + " cannot be written");
  const auto pictures =
      static_cast<std::int64_t>((options.seconds > 0 ? options.seconds : kUsualSeconds) * camera.Fps());
  const std::int64_t startUs = WallClockUs();
  Camera::Part part;
  std::string reason;
  bool begun = false;
  for (std::int64_t number = 0; number < pictures && !IsStopped(stop); ++number) {
    if (!camera.Next(startUs + number * 1000000 / camera.Fps(), part, reason)) return Fail(reason);
    begun = begun || part.start;
    if (begun && fwrite(part.bytes.data(), 1, part.bytes.size(), file.get()) != part.bytes.size()) break;
  }
  if (fflush(file.get()) == 0 && ferror(file.get()) == 0) return 0;
  return Fail(options.file + " could not be written to its end");
}

int Serve(Camera& camera, const Options& options, const UniqueFd& stop) {
  std::string reason;
  const Listener listener = OpenListener(options.bind, options.port, &reason);
  if (!listener.socket.IsValid()) return Fail(reason);
  puts(DescribeAddresses(options.bind, listener.port).c_str());
  fflush(stdout);
  Server server(camera, listener.socket.Get(), stop.Get());
  const auto untilUs = options.seconds > 0 ? MonotonicUs() + static_cast<std::int64_t>(options.seconds * 1e6) : 0;
  return server.Run(untilUs, reason) ? 0 : Fail(reason);
}

void AddOptions(CLI::App& app, Options& options) {
  CameraSettings& camera = options.camera;
  auto* place = app.add_option_group("where to", "One of them");
  place->add_option("--file", options.file, "Write the stream into this file");
  place->add_option("--port", options.port, "Serve it over HTTP on this port; 0: any free one, printed as a URL")
      ->check(CLI::Range(0, 65535));
  place->require_option(1);
  app.add_option("--bind", options.bind, "Listen on this address only")->capture_default_str();
  app.add_option("--seconds", options.seconds,
                 "How long; without it a file has 10 s, a server runs until it is stopped")
      ->check(CLI::Range(0.04, 1e6));
  app.add_option("--size", options.size, "WIDTHxHEIGHT, even numbers from 16 to 3840; else 1280x720 or the input's");
  app.add_option("--fps", camera.fps, "Pictures a second")->check(CLI::Range(1, 60))->capture_default_str();
  app.add_option("--key-every", camera.mxpeg.keyInterval, "A key picture at least every so many pictures")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  app.add_option("--quality", camera.mxpeg.quality, "Of the JPEGs")->check(CLI::Range(1, 100))->capture_default_str();
  app.add_option("--noise", camera.mxpeg.noise, "Blocks in which nothing changed by more than this are not sent again")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  app.add_option("--tone", camera.toneHz, "Frequency of the sound in Hz; 0: no sound")
      ->check(CLI::Range(0.0, kAlawRate / 2.0))
      ->capture_default_str();
  app.add_flag("--no-video", options.noVideo, "Sound only");
  app.add_option("--input", camera.input, "Show this film, looped, instead of the test pattern");
  app.add_option("--fault", camera.fault, "Do this wrong on purpose")->transform(CLI::CheckedTransformer(kFaultNames));
}

// What single options cannot tell; empty when all is well.
std::string Contradiction(Options& options) {
  CameraSettings& camera = options.camera;
  camera.video = !options.noVideo;
  if (!camera.video && camera.toneHz <= 0) return "--no-video with --tone 0 leaves nothing to send";
  if (camera.fault == Fault::kStall && !options.file.empty()) return "--fault stall needs --port";
  if (camera.fault == Fault::kDeltaFirst && camera.mxpeg.keyInterval == 1) {
    return "--fault delta-first needs --key-every 2 or more";
  }
  const bool ownSize = options.size.empty() && !camera.input.empty();
  if (!ownSize && !ParseTestSize(options.size, camera.mxpeg.width, camera.mxpeg.height)) {
    return "--size is WIDTHxHEIGHT with even numbers from 16 to 3840";
  }
  return {};
}

int Run(int argc, char** argv) {
  CLI::App app{"A generated MxPEG camera: GET / (multipart) and /raw, or a file", "mxpeg-camera"};
  Options options;
  AddOptions(app, options);
  try {
    app.parse(argc, argv);
    if (const std::string text = Contradiction(options); !text.empty()) throw CLI::ValidationError(text);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  QuietFfmpegLog();
  const UniqueFd stop = StopSignals();
  Camera camera;
  std::string reason;
  if (!stop.IsValid()) return Fail("no signals can be received");
  if (!camera.Open(options.camera, reason)) return Fail(reason);
  return options.file.empty() ? Serve(camera, options, stop) : WriteFile(camera, options, stop);
}

}  // namespace
}  // namespace oculora

int main(int argc, char** argv) {
  try {
    return oculora::Run(argc, argv);
  } catch (const std::exception& error) {
    return oculora::Fail(error.what());
  }
}
