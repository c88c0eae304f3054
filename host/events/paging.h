// Pages of events of several hosts: the order in which the events stand, where a page ended, many pages made one.
//
// The order is newest first, then by server (0, this host, comes first), then by id, the highest first. Each host lists
// its own events in that order.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oculora {

// Where an event stands.
struct EventPlace {
  std::int64_t startUs = 0;
  int server = 0;  // the recording server that has it; 0: this host
  int id = 0;      // there
};

bool StandsBefore(const EventPlace& one, const EventPlace& other);

// A place as the text that clients hand back: "START-ID" of an event of this host, "START-ID-SERVER" of another's.
std::string CursorText(const EventPlace& place);
std::optional<EventPlace> ReadCursor(const std::string& text);

// Where a page of one server's own events begins that goes on behind `cursor`: with what follows the answer, whether
// there is an event in that place or not.
EventPlace CursorOn(int server, const EventPlace& cursor);

struct ListedEvent {
  EventPlace place;
  Json::Value item;
};

// A page of one host's events, in order.
struct EventPage {
  std::vector<ListedEvent> events;
  std::optional<EventPlace> end;  // where it ended although the host has more events
};

// One page of at most `limit` events from pages that go on behind the same cursor. It holds fewer where one of the
// pages ended early: what follows there is not known yet.
EventPage MergePages(std::vector<EventPage> pages, std::size_t limit);

}  // namespace oculora
