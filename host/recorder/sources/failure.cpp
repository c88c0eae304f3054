// Why a source failed, in words for the person in front of the page. Never with a password.
#include "recorder/sources/failure.h"

#include <cerrno>
#include <cstring>

#include "recorder/av/quiet_log.h"

namespace oculora {
namespace {

std::string FfmpegText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof(text));
  return text;
}

std::string FileFailure(int code, const std::string& path) {
  switch (code) {
    case AVERROR(ENOENT):
      return "There is no file " + path;
    case AVERROR(EACCES):
    case AVERROR(EPERM):
      return "The file " + path + " may not be read";
    case AVERROR_INVALIDDATA:
      return "The file " + path + " is no video known here";
    case AVERROR_STREAM_NOT_FOUND:
      return "No video in the file " + path;
    default:
      return "The file " + path + " cannot be read: " + FfmpegText(code);
  }
}

std::string HostFailure(int code, const SourceAddress& address) {
  const std::string& host = address.display;
  switch (code) {
    case AVERROR(ECONNREFUSED):
      return "Connection refused by " + host;
    case AVERROR(EHOSTUNREACH):
    case AVERROR(ENETUNREACH):
      return "There is no way to " + host + " in this network";
    case AVERROR(ECONNRESET):
    case AVERROR(EPIPE):
    case AVERROR_EOF:
      return "The connection was closed by " + host;
    case AVERROR_HTTP_UNAUTHORIZED:
      return address.hasPassword ? "The camera refuses the user name or password"
                                 : "The camera asks for a user name and password";
    case AVERROR_HTTP_FORBIDDEN:
      return "The camera forbids access to this address (403)";
    case AVERROR_HTTP_NOT_FOUND:
      return "The camera has nothing at this address (404)";
    case AVERROR_HTTP_BAD_REQUEST:
    case AVERROR_HTTP_OTHER_4XX:
      return "The camera refuses the request";
    case AVERROR_HTTP_SERVER_ERROR:
      return "The camera reports an error of its own";
    case AVERROR_STREAM_NOT_FOUND:
      return "No video in the stream";
    case AVERROR_INVALIDDATA:
      return "The answer of " + host + " is no video stream known here";
    case AVERROR_PROTOCOL_NOT_FOUND:
    case AVERROR_DEMUXER_NOT_FOUND:
      return "Sources of the kind " + address.scheme + ":// are not supported by this machine's FFmpeg";
    default:
      return host + " cannot be used: " + FfmpegText(code);
  }
}

std::string NoAnswer() { return "No answer within " + std::to_string(kAnswerTimeoutMs / 1000) + " s"; }

}  // namespace

std::string OpenFailure(int code, const SourceAddress& address, bool timedOut) {
  const bool unknownName = TakeNameLookupFailed();
  if (address.kind == SourceKind::kFile) return FileFailure(code, address.target);
  if (unknownName) return "The name of the camera is not known in this network (" + address.display + ")";
  if (timedOut || code == AVERROR(ETIMEDOUT)) return NoAnswer();
  return HostFailure(code, address);
}

std::string ReadFailure(int code, const SourceAddress& address, bool timedOut) {
  if (address.kind == SourceKind::kFile) return FileFailure(code, address.target);
  if (timedOut || code == AVERROR(ETIMEDOUT)) {
    return "No picture for " + std::to_string(kAnswerTimeoutMs / 1000) + " s";
  }
  // Some demuxers report a stream that ends as an input error.
  return HostFailure(code == AVERROR(EIO) ? AVERROR_EOF : code, address);
}

std::string WrongCodec(AVCodecID sent, AVCodecID expected) {
  return std::string("The camera sends ") + avcodec_get_name(sent) + ", but is set up as " + avcodec_get_name(expected);
}

}  // namespace oculora
