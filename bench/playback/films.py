"""Recorded events for benchmarks: films made with ffmpeg and imported into a site."""

import glob
import os
import subprocess

STREAM = "VELM.Oculora.Stream"


def make_picture(path, size, noise, quality):
    """A noisy JPEG picture."""
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=size={size}:rate=1:duration=1", "-vf",
                    f"noise=alls={noise}:allf=t", "-c:v", "mjpeg", "-huffman", "default", "-q:v", str(quality), "-pix_fmt",
                    "yuvj420p", "-frames:v", "1", path], check=True)


def import_film(site, camera, picture, fps, frames):
    """An event that shows `picture` (a path inside the site) so many times; its id."""
    film = "/var/packages/film.avi"
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-loop", "1", "-framerate", str(fps), "-i", site.path(picture),
                    "-frames:v", str(frames), "-c:v", "copy", site.path(film)], check=True)
    return int(site.oculora("event", "import", str(camera), film).stdout.split()[-1])


def newest_recording(site):
    """Where the file lies that was imported last."""
    return max(glob.glob(site.path("/var/packages/Oculora/var/recordings") + "/**/*.avi", recursive=True),
               key=os.path.getctime)


def file_path(site, event, sid):
    return site.api_path(STREAM, "EventStream", {"eventId": event}, sid)


def frames_path(site, event, sid, **parameters):
    return site.api_path(STREAM, "EventMultipartFetch", {"eventId": event, "timestamp": 4711, "checkpgid": 0, **parameters},
                         sid)
