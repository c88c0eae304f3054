-- The part of the records that recording brought with version 3; schema.sql stands before it.

-- Recorded events; docs/ref/recordings.md tells how a row goes from state to state with its file.
CREATE TABLE events (
  id           INTEGER PRIMARY KEY AUTOINCREMENT,   -- never used again: players may still hold an old one
  camera       INTEGER NOT NULL REFERENCES cameras (id),
  type         INTEGER NOT NULL DEFAULT 0,   -- 0 recording, 1 raised by an alert
  device_type  INTEGER NOT NULL DEFAULT 0,   -- of an alert's source; 1024: an analytics task
  task         INTEGER NOT NULL DEFAULT 0,   -- vexa_settings.id when an analytics task raised it
  cause        INTEGER NOT NULL,             -- 0 continuous, 1 asked for, 2 imported
  state        INTEGER NOT NULL,             -- 0 ready, 1 being recorded, 2 asked for, 3 failed, 4 being deleted
  reason       TEXT NOT NULL DEFAULT '',     -- of a failure, for people
  path         TEXT NOT NULL DEFAULT '',     -- of the file, below the storage's recordings; empty: none yet
  video_type   INTEGER NOT NULL DEFAULT 0,   -- CAM_VIDEO_TYPE of the pictures in it
  start_us     INTEGER NOT NULL,             -- of the first picture (or the request), microseconds since 1970
  wanted_us    INTEGER NOT NULL DEFAULT 0,   -- how long to record; 0: until the file is full
  length_us    INTEGER NOT NULL DEFAULT 0,
  bytes        INTEGER NOT NULL DEFAULT 0,
  frames       INTEGER NOT NULL DEFAULT 0,
  kept         INTEGER NOT NULL DEFAULT 0,   -- spared when old recordings are deleted
  played       INTEGER NOT NULL DEFAULT 0    -- when it was first played, seconds since 1970; 0: not yet
);
CREATE INDEX events_by_time ON events (start_us, id);
CREATE INDEX events_by_camera ON events (camera, start_us, id);
CREATE INDEX events_unfinished ON events (state) WHERE state <> 0;

-- What recording a camera has come to.
CREATE TABLE recording_states (
  camera  INTEGER PRIMARY KEY REFERENCES cameras (id) ON DELETE CASCADE,
  state   INTEGER NOT NULL,          -- 0 off, 1 recording, 2 waiting for the camera, 3 stopped by a failure
  reason  TEXT NOT NULL DEFAULT '',  -- for people
  since   INTEGER NOT NULL           -- seconds since 1970
);

-- Directories that hold recordings of other origin: each has records of its own and a directory "recordings".
CREATE TABLE storages (
  kind       INTEGER NOT NULL CHECK (kind IN (1, 2)),   -- 1 mount, 2 archive
  number     INTEGER NOT NULL CHECK (number > 0),       -- as requests name it
  directory  TEXT NOT NULL,
  PRIMARY KEY (kind, number)
) WITHOUT ROWID;

-- Tasks of video analytics, one a row: what to look for in a camera's pictures, and what to do then. The columns stand
-- in velm/vexacolumns.h too. Lengths in the picture are thousandths of its width or height; flags are 0 or 1.
CREATE TABLE vexa_settings (
  id                     INTEGER PRIMARY KEY,
  camera_id              INTEGER NOT NULL REFERENCES cameras (id) ON DELETE CASCADE,
  name                   TEXT NOT NULL UNIQUE CHECK (name <> ''),
  enabled                INTEGER NOT NULL DEFAULT 1,
  detection_type         INTEGER NOT NULL CHECK (detection_type BETWEEN 0 AND 7),   -- 0 object tracking, 1 motion,
      -- 2 a zone not left in time, 3 people passing (camera on the wall), 4 an object left behind, 5 an object gone,
      -- 6 people passing (camera on the ceiling), 7 objects by their kind
  priority               INTEGER NOT NULL DEFAULT 0,     -- higher goes first when the machine is busy
  stream_profile         INTEGER NOT NULL DEFAULT 2,     -- whose pictures: 0 high, 1 balanced, 2 mobile
  analysis_fps           INTEGER NOT NULL DEFAULT 0,     -- pictures looked at a second; 0: as many as come
  analysis_width         INTEGER NOT NULL DEFAULT 0,     -- pixels that pictures are scaled to; 0: as they come
  analysis_height        INTEGER NOT NULL DEFAULT 0,
  -- When it runs.
  schedule_enabled       INTEGER NOT NULL DEFAULT 0,     -- 0: always
  schedule               TEXT NOT NULL DEFAULT '',       -- a digit for each half hour of a week from Monday, 1: runs
  holiday_schedule       TEXT NOT NULL DEFAULT '',       -- the same for one day
  -- What counts as a change of the picture.
  sensitivity            INTEGER NOT NULL DEFAULT 50,    -- 1 to 100
  contrast_threshold     INTEGER NOT NULL DEFAULT 0,     -- smallest difference of brightness, 0 to 255; 0: chosen itself
  noise_reduction        INTEGER NOT NULL DEFAULT 1,     -- 0 off, 1 weak, 2 strong
  shadow_removal         INTEGER NOT NULL DEFAULT 1,     -- flag
  light_tolerance        INTEGER NOT NULL DEFAULT 50,    -- percent of the picture that may brighten at once
  shake_compensation     INTEGER NOT NULL DEFAULT 0,     -- flag
  night_sensitivity      INTEGER NOT NULL DEFAULT 0,     -- 1 to 100, used in the dark; 0: sensitivity
  background_seconds     INTEGER NOT NULL DEFAULT 300,   -- after which something still belongs to the background
  -- Where it looks.
  zone_mode              INTEGER NOT NULL DEFAULT 0,     -- 0 everywhere, 1 inside the zones, 2 outside
  zones                  TEXT NOT NULL DEFAULT '',       -- JSON: polygons, each a list of points [x, y]
  ignored_zones          TEXT NOT NULL DEFAULT '',       -- the same; nothing in them ever counts
  -- Which objects count.
  size_filter            INTEGER NOT NULL DEFAULT 0,     -- flag: the four sizes below apply
  min_width              INTEGER NOT NULL DEFAULT 0,
  min_height             INTEGER NOT NULL DEFAULT 0,
  max_width              INTEGER NOT NULL DEFAULT 1000,
  max_height             INTEGER NOT NULL DEFAULT 1000,
  object_kinds           INTEGER NOT NULL DEFAULT 15,    -- sum of 1 people, 2 vehicles, 4 animals, 8 anything else
  min_confidence         INTEGER NOT NULL DEFAULT 50,    -- percent
  min_presence_ms        INTEGER NOT NULL DEFAULT 0,     -- how long it must have been seen
  min_speed              INTEGER NOT NULL DEFAULT 0,     -- lengths in the picture a second
  max_speed              INTEGER NOT NULL DEFAULT 0,     -- 0: no limit
  directions             INTEGER NOT NULL DEFAULT 255,   -- sum of 1 up, 2 up and right, 4 right ... 128 up and left
  max_objects            INTEGER NOT NULL DEFAULT 0,     -- followed at a time; 0: no limit
  -- Lines that objects cross, and counting of people.
  lines                  TEXT NOT NULL DEFAULT '',       -- JSON: pairs of points [x, y]
  line_direction         INTEGER NOT NULL DEFAULT 0,     -- 0 both, 1 left to right as drawn, 2 right to left
  count_entering         INTEGER NOT NULL DEFAULT 1,     -- flag
  count_leaving          INTEGER NOT NULL DEFAULT 1,     -- flag
  count_swapped          INTEGER NOT NULL DEFAULT 0,     -- flag: entering is against the drawn direction
  count_limit            INTEGER NOT NULL DEFAULT 0,     -- people inside that raise an alert; 0: none
  count_reset_minute     INTEGER NOT NULL DEFAULT 0,     -- of the day, when counts begin anew; -1: never
  count_person_width     INTEGER NOT NULL DEFAULT 0,     -- of one person; 0: found out
  count_person_height    INTEGER NOT NULL DEFAULT 0,
  camera_height_cm       INTEGER NOT NULL DEFAULT 0,     -- above the floor; 0: unknown
  -- Thresholds of single kinds of detection.
  foreign_seconds        INTEGER NOT NULL DEFAULT 30,    -- after which an object is left behind
  missing_seconds        INTEGER NOT NULL DEFAULT 30,    -- after which an object is gone
  reference_picture      TEXT NOT NULL DEFAULT '',       -- name of the picture that objects are missed from
  reference_moved        INTEGER NOT NULL DEFAULT 0,     -- flag: an object that was moved is gone too
  idle_seconds           INTEGER NOT NULL DEFAULT 10,    -- that a zone may be occupied
  loitering_seconds      INTEGER NOT NULL DEFAULT 0,     -- of one object in a zone; 0: does not matter
  motion_area            INTEGER NOT NULL DEFAULT 10,    -- thousandths of the zones that must move
  motion_min_ms          INTEGER NOT NULL DEFAULT 200,   -- for so long
  motion_merge_seconds   INTEGER NOT NULL DEFAULT 5,     -- motion after a shorter rest is the same motion
  -- What happens then.
  alert_enabled          INTEGER NOT NULL DEFAULT 1,     -- flag
  alert_level            INTEGER NOT NULL DEFAULT 1,     -- 0 notice, 1 warning, 2 alarm
  alert_hold_seconds     INTEGER NOT NULL DEFAULT 0,     -- that an alert goes on after its cause
  alert_pause_seconds    INTEGER NOT NULL DEFAULT 10,    -- before the next one
  alert_text             TEXT NOT NULL DEFAULT '',       -- shown with it
  alert_sound            INTEGER NOT NULL DEFAULT 0,     -- number of a sound; 0: none
  alert_output           INTEGER NOT NULL DEFAULT 0,     -- number of the camera's output to switch; 0: none
  alert_mail             INTEGER NOT NULL DEFAULT 0,     -- flag
  alert_push             INTEGER NOT NULL DEFAULT 0,     -- flag
  record                 INTEGER NOT NULL DEFAULT 1,     -- flag: alerts are recorded as events
  record_before_seconds  INTEGER NOT NULL DEFAULT 5,
  record_after_seconds   INTEGER NOT NULL DEFAULT 5,
  record_max_seconds     INTEGER NOT NULL DEFAULT 300,
  record_kept            INTEGER NOT NULL DEFAULT 0,     -- flag: spared when old recordings are deleted
  record_keep_days       INTEGER NOT NULL DEFAULT 0,     -- 0: like other recordings
  -- What is drawn over the picture.
  show_zones             INTEGER NOT NULL DEFAULT 1,     -- flags
  show_lines             INTEGER NOT NULL DEFAULT 1,
  show_objects           INTEGER NOT NULL DEFAULT 1,
  show_tracks            INTEGER NOT NULL DEFAULT 0,
  show_counts            INTEGER NOT NULL DEFAULT 1,
  count_title            TEXT NOT NULL DEFAULT '',       -- before the counts
  display_color          INTEGER NOT NULL DEFAULT 16776960,   -- red * 65536 + green * 256 + blue
  display_opacity        INTEGER NOT NULL DEFAULT 100,   -- percent
  display_line_width     INTEGER NOT NULL DEFAULT 2,     -- pixels
  display_text_size      INTEGER NOT NULL DEFAULT 16,    -- pixels
  display_text_place     INTEGER NOT NULL DEFAULT 0      -- 0 top left, 1 top right, 2 bottom left, 3 bottom right
);
