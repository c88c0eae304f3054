-- The records of a site: everything an administrator configured, and the sessions of people logged in.
--
-- Version 3. A later version adds its step to migrations.cpp, writes down here what the step makes of the tables (new
-- columns last), and raises the number in `version` and there. The rollback journal (not a write-ahead log) is chosen on purpose:
-- a reader then needs the one file only, and may open it read-only.

CREATE TABLE version (
  only_row  INTEGER PRIMARY KEY CHECK (only_row = 1),
  version   INTEGER NOT NULL
);
INSERT INTO version VALUES (1, 3);

-- One row a camera, of this host or of a recording server managed by it.
CREATE TABLE cameras (
  id            INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 262143),  -- 18 bits: it names the frame ring
  name          TEXT NOT NULL UNIQUE CHECK (name <> ''),
  video_type    INTEGER NOT NULL,             -- CAM_VIDEO_TYPE: 1 MJPEG, 2 MPEG-4, 3 H.264, 5 MxPEG, 7 H.264 variant
  source        TEXT NOT NULL,                -- URL, file or "test:"; may hold the camera's password
  owner_server  INTEGER NOT NULL DEFAULT 0,   -- servers.id; 0: this host records it
  id_on_server  INTEGER NOT NULL DEFAULT 0,   -- the camera's id there
  enabled       INTEGER NOT NULL DEFAULT 1,
  deleting      INTEGER NOT NULL DEFAULT 0,   -- marked for deletion
  stay_on       INTEGER NOT NULL DEFAULT 0,   -- runs even when nobody watches
  record_seconds  INTEGER NOT NULL DEFAULT 0  -- recorded all the time, in files of this length; 0: not
);

-- What a camera is asked for, for each way of watching it.
CREATE TABLE camera_profiles (
  camera     INTEGER NOT NULL REFERENCES cameras (id) ON DELETE CASCADE,
  profile    INTEGER NOT NULL CHECK (profile BETWEEN 0 AND 2),      -- 0 high, 1 balanced, 2 mobile
  stream_no  INTEGER NOT NULL CHECK (stream_no BETWEEN 0 AND 15),   -- 4 bits: it names the frame ring
  fps        INTEGER NOT NULL DEFAULT 0,   -- frames a second, as declared; 0: nobody did
  width      INTEGER NOT NULL DEFAULT 0,   -- pixels; 0 unknown
  height     INTEGER NOT NULL DEFAULT 0,   -- pixels; 0 unknown
  measured_fps  INTEGER NOT NULL DEFAULT 0,   -- frames a second, as the recorder measured them; 0 not yet
  PRIMARY KEY (camera, profile)
) WITHOUT ROWID;

CREATE TABLE users (
  uid            INTEGER PRIMARY KEY CHECK (uid > 1024),   -- 1024 is the system itself
  name           TEXT NOT NULL UNIQUE CHECK (name <> ''),
  password_hash  TEXT NOT NULL,                            -- memory-hard hash with its salt and cost
  admin          INTEGER NOT NULL DEFAULT 0,
  app_privilege  INTEGER NOT NULL DEFAULT 1,               -- may use the application at all
  operations     INTEGER NOT NULL DEFAULT 0                -- bit N: operation N (1 live, 2 playback)
);

-- People logged in. Times are seconds since 1970.
CREATE TABLE sessions (
  id       TEXT PRIMARY KEY,   -- 128 random bits as text
  uid      INTEGER NOT NULL REFERENCES users (uid) ON DELETE CASCADE,
  created  INTEGER NOT NULL,
  expires  INTEGER NOT NULL
) WITHOUT ROWID;

-- Failed log-ins in a row, for each address they came from. Times are seconds since 1970.
CREATE TABLE login_failures (
  address   TEXT PRIMARY KEY,
  failures  INTEGER NOT NULL,
  last      INTEGER NOT NULL
) WITHOUT ROWID;

-- Recording servers managed by this host.
CREATE TABLE servers (
  id      INTEGER PRIMARY KEY CHECK (id > 0),
  name    TEXT NOT NULL UNIQUE CHECK (name <> ''),
  url     TEXT NOT NULL,
  secret  TEXT NOT NULL   -- shared with that server; keys the pair match
);

-- Known names: "record_keep_days" and "record_keep_gb" (0: no limit), "record_reserve_mb" (free space that recording
-- leaves alone), "cms" ("1": this host manages recording servers), "pair_secret" (shared with the host managing this
-- one; empty: there is none), "pair_name" (what that host calls itself).
CREATE TABLE settings (
  name   TEXT PRIMARY KEY,
  value  TEXT NOT NULL
) WITHOUT ROWID;
