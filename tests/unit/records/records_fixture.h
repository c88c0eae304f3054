// An empty records file of its own for each test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "records/records.h"

class RecordsTest : public testing::Test {
 protected:
  RecordsTest() {
    char directory[] = "/tmp/records-XXXXXX";
    m_Directory = mkdtemp(directory);
    m_Path = m_Directory + "/records.db";
  }
  ~RecordsTest() override { std::filesystem::remove_all(m_Directory); }

  oculora::Database Open(oculora::Database::Mode mode) {
    std::string error;
    auto database = oculora::Database::Open(mode, &error, m_Path.c_str());
    if (!database) throw std::runtime_error(error);
    return std::move(*database);
  }
  oculora::Database Make() { return Open(oculora::Database::Mode::kCreate); }
  oculora::Database Reader() { return Open(oculora::Database::Mode::kReadOnly); }

  std::string m_Directory;
  std::string m_Path;
};
