#!/usr/bin/python3
"""An RTSP camera made of GStreamer's server: H.264 (several slices a picture) or MJPEG of a moving test pattern.

    rtsp_server.py [--port N] [--codec h264|jpeg] [--sets stream|description] [--user NAME:PASSWORD] [--fps N]

Prints "READY PORT" once it answers at rtsp://127.0.0.1:PORT/live. Ends on SIGTERM.
"""

import argparse
import signal
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402


def launch_line(arguments):
    source = f"videotestsrc is-live=true pattern=ball ! video/x-raw,width=640,height=360,framerate={arguments.fps}/1,format=I420"
    if arguments.codec == "jpeg":
        return f"( {source} ! jpegenc quality=80 ! rtpjpegpay name=pay0 pt=26 )"
    # Without config-interval parameter sets stand in the session description alone; -1 repeats them in the stream.
    interval = 0 if arguments.sets == "description" else -1
    return (f"( {source} ! x264enc tune=zerolatency speed-preset=ultrafast key-int-max={arguments.fps} bframes=0 "
            f"option-string=slices=4 ! video/x-h264,profile=baseline ! rtph264pay name=pay0 pt=96 config-interval={interval} )")


def require_password(server, factory, user):
    name, password = user.split(":", 1)
    auth = GstRtspServer.RTSPAuth()
    token = GstRtspServer.RTSPToken()
    token.set_string("media.factory.role", "viewer")
    auth.add_basic(GstRtspServer.RTSPAuth.make_basic(name, password), token)
    server.set_auth(auth)
    permissions = GstRtspServer.RTSPPermissions()
    permissions.add_permission_for_role("viewer", "media.factory.access", True)
    permissions.add_permission_for_role("viewer", "media.factory.construct", True)
    factory.set_permissions(permissions)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--port", default="0")
    parser.add_argument("--codec", choices=["h264", "jpeg"], default="h264")
    parser.add_argument("--sets", choices=["stream", "description"], default="stream")
    parser.add_argument("--user")
    parser.add_argument("--fps", type=int, default=15)
    arguments = parser.parse_args()

    Gst.init(None)
    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    server.set_service(arguments.port)
    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_launch(launch_line(arguments))
    factory.set_shared(True)
    if arguments.user:
        require_password(server, factory, arguments.user)
    server.get_mount_points().add_factory("/live", factory)
    if not server.attach(None):
        sys.exit("the port cannot be had")
    loop = GLib.MainLoop()
    for signal_number in (signal.SIGTERM, signal.SIGINT):
        GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal_number, loop.quit)
    print("READY", server.get_bound_port(), flush=True)
    loop.run()


if __name__ == "__main__":
    main()
