// The order of events of several hosts.
#include "events/paging.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <tuple>

namespace oculora {
namespace {

// Takes a number off the front of `text`, and the dash behind it unless the text ends there.
template <typename Number>
bool TakeNumber(const char*& text, const char* end, Number& number) {
  const auto [rest, error] = std::from_chars(text, end, number);
  if (error != std::errc() || (rest != end && (*rest != '-' || rest + 1 == end))) return false;
  text = rest == end ? rest : rest + 1;
  return true;
}

}  // namespace

bool StandsBefore(const EventPlace& one, const EventPlace& other) {
  return std::tie(other.startUs, one.server, other.id) < std::tie(one.startUs, other.server, one.id);
}

std::string CursorText(const EventPlace& place) {
  const std::string own = std::to_string(place.startUs) + "-" + std::to_string(place.id);
  return place.server == 0 ? own : own + "-" + std::to_string(place.server);
}

std::optional<EventPlace> ReadCursor(const std::string& text) {
  const char* rest = text.c_str();
  const char* const end = rest + text.size();
  EventPlace place;
  if (!TakeNumber(rest, end, place.startUs) || !TakeNumber(rest, end, place.id)) return std::nullopt;
  if (rest != end && (!TakeNumber(rest, end, place.server) || place.server < 1)) return std::nullopt;
  const bool fits = place.startUs < std::numeric_limits<std::int64_t>::max();  // CursorOn adds to it
  return rest == end && place.id > 0 && fits ? std::optional(place) : std::nullopt;
}

// No event has a number below 1. So all events that begin at a moment stand before number 1 of that moment, and behind
// number 1 of the next.
EventPlace CursorOn(int server, const EventPlace& cursor) {
  if (server == cursor.server) return cursor;
  return {server < cursor.server ? cursor.startUs : cursor.startUs + 1, server, 1};
}

EventPage MergePages(std::vector<EventPage> pages, std::size_t limit) {
  EventPage merged;
  for (EventPage& page : pages) {
    if (page.end && (!merged.end || StandsBefore(*page.end, *merged.end))) merged.end = page.end;
    std::move(page.events.begin(), page.events.end(), std::back_inserter(merged.events));
  }
  const auto isBefore = [](const ListedEvent& one, const ListedEvent& other) {
    return StandsBefore(one.place, other.place);
  };
  std::sort(merged.events.begin(), merged.events.end(), isBefore);
  if (merged.end) {
    std::erase_if(merged.events, [&](const ListedEvent& event) { return StandsBefore(*merged.end, event.place); });
  }
  if (merged.events.size() > limit) {
    merged.events.resize(limit);
    merged.end = merged.events.back().place;
  }
  return merged;
}

}  // namespace oculora
