#!/usr/bin/python3
"""An RTSP camera made of GStreamer's server: a moving test pattern, 640x360 at 15 frames a second.

    rtsp_server.py [NAME:PASSWORD]

Prints "READY PORT" once it answers at rtsp://127.0.0.1:PORT/h264 (several slices a picture), /described (the same, but
parameter sets stand in the session description alone) and /jpeg. Ends on SIGTERM.
"""

import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

SOURCE = "videotestsrc is-live=true pattern=ball ! video/x-raw,width=640,height=360,framerate=15/1,format=I420"
H264 = ("x264enc tune=zerolatency speed-preset=ultrafast key-int-max=15 bframes=0 option-string=slices=4 ! "
        "video/x-h264,profile=baseline ! rtph264pay name=pay0 pt=96 config-interval=")
STREAMS = {"/h264": H264 + "-1", "/described": H264 + "0", "/jpeg": "jpegenc quality=80 ! rtpjpegpay name=pay0 pt=26"}


Gst.init(None)
camera = GstRtspServer.RTSPServer(address="127.0.0.1", service="0")
viewers = GstRtspServer.RTSPPermissions()
for right in ("access", "construct"):
    viewers.add_permission_for_role("viewer", "media.factory." + right, True)
for path, encoder in STREAMS.items():
    factory = GstRtspServer.RTSPMediaFactory(launch=f"( {SOURCE} ! {encoder} )", shared=True)
    factory.set_permissions(viewers)
    camera.get_mount_points().add_factory(path, factory)
if len(sys.argv) > 1:
    auth, token = GstRtspServer.RTSPAuth(), GstRtspServer.RTSPToken()
    token.set_string("media.factory.role", "viewer")
    auth.add_basic(GstRtspServer.RTSPAuth.make_basic(*sys.argv[1].split(":")), token)
    camera.set_auth(auth)
camera.attach(None)
print("READY", camera.get_bound_port(), flush=True)
GLib.MainLoop().run()
