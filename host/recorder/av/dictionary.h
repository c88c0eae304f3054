// Options for FFmpeg, by name.
#pragma once

#include <string>

#include "recorder/av/ffmpeg.h"

namespace oculora {

class Dictionary {
 public:
  Dictionary() = default;
  ~Dictionary() { av_dict_free(&m_Dict); }
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;

  void Set(const char* name, const std::string& value) { av_dict_set(&m_Dict, name, value.c_str(), 0); }
  void Set(const char* name, long long value) { av_dict_set_int(&m_Dict, name, value, 0); }

  // For calls that take out what they know and leave the rest.
  AVDictionary** Get() { return &m_Dict; }

 private:
  AVDictionary* m_Dict = nullptr;
};

}  // namespace oculora
