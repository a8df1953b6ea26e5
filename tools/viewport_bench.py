#!/usr/bin/env python3
"""Frame rate and hand-over latency of the viewport's two processes, driven as the editor drives
them: `orvan_runtime_viewport` and `orvan_viewport_client` on loopback, a driver that
acknowledges every frame as soon as its line arrives.

  tools/viewport_bench.py [--bin DIR] [--sizes 1280x720,1920x1080] [--seconds S]
                          [--generated N] [--previews N]

For the demo scene and a generated scene of N prims (100,000 by default) it prints, per frame
size: the time from the open line to the first frame (reading and composing the scene included),
frames per second while the camera orbits (a gesture after each frame, so the runtime never
idles), the time each frame took to draw, the time a surface was out (written by the runtime ->
line to the client -> driver -> acknowledgement back at the runtime, measured by the runtime), and
the time from a property-preview line to the first frame that shows it, and the time from a
pointer move of a gizmo drag (a translate arrow of the previewed prim, framed) to its
"transformCommit" line, which goes out with the frame that shows the move. With --server it also
serves each scene with `orvan_project_server` and measures the open through the server (the
layers fetched and composed in the runtime) and the time from an edit (a one-shot
`orvan_edit_client` moving a prim, its start included) to the first frame after it.
"""
import argparse
import json
import math
import os
import select
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(fraction * len(ordered)))]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Viewport:
    """The runtime and the client, started as the editor starts them."""

    def __init__(self, binary):
        address = "127.0.0.1:%d" % free_port()
        env = dict(os.environ, ORVAN_VIEWPORT_TIMING="1")
        self.runtime = subprocess.Popen(
            [os.path.join(binary, "orvan_runtime_viewport"), "--address", address,
             "--parent-pid", str(os.getpid())],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)
        ready = self.runtime.stdout.readline()
        if "Viewport server listening" not in ready:
            raise RuntimeError("the runtime did not start: %r" % ready)
        self.timings = []
        self.lock = threading.Lock()
        threading.Thread(target=self._read_timings, daemon=True).start()
        self.client = subprocess.Popen(
            [os.path.join(binary, "orvan_viewport_client"), "--address", address, "--json-lines"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)

    def _read_timings(self):
        for line in self.runtime.stderr:
            if line.startswith("viewport timing "):
                fields = dict(item.split("=") for item in line.split()[2:])
                with self.lock:
                    self.timings.append((float(fields["render-ms"]), float(fields["out-ms"])))

    def take_timings(self):
        with self.lock:
            taken, self.timings = self.timings, []
        return taken

    def open_scene(self, scene, width, height, address=""):
        self.send("open|%s|%s|bench-viewport|%d|%d|1.0|1|0|||main|||1|0" % (
            scene, address, width, height))

    def send(self, line):
        self.client.stdin.write(line + "\n")
        self.client.stdin.flush()

    def next_frame(self):
        """The next frame line, acknowledged at once; status lines are shown."""
        return self.next_line("frame")

    def next_line(self, kind):
        """The next line of that type; frames on the way are acknowledged at once."""
        while True:
            if not select.select([self.client.stdout], [], [], 30.0)[0]:
                raise RuntimeError("no %s line within 30 s" % kind)
            text = self.client.stdout.readline()
            if not text:
                raise RuntimeError("the client ended")
            line = json.loads(text)
            if line["type"] == "frame":
                self.send("frame-ack|%d|%d" % (line["frameIndex"], line["surfaceId"]))
            if line["type"] == kind:
                return line
            if line["type"] == "status":
                print("   status: %s" % line.get("message"), file=sys.stderr)

    def close(self):
        self.client.stdin.close()
        self.client.wait(timeout=30)
        self.runtime.terminate()
        self.runtime.wait(timeout=30)


def handle_pixel(camera, width, height):
    """Where a translate arrow of a prim at the camera's target is (a framed cube's centre), in
    the editor's pixels (bottom-left origin): the X or Z arrow, whichever is longer on screen."""
    yaw, pitch = math.radians(camera["yaw"]), math.radians(camera["pitch"])
    target = (camera["targetX"], camera["targetY"], camera["targetZ"])
    to_eye = (math.cos(pitch) * math.sin(yaw), math.sin(pitch), math.cos(pitch) * math.cos(yaw))
    forward = tuple(-v for v in to_eye)
    side = (forward[1] * 0 - forward[2] * 1, forward[2] * 0 - forward[0] * 0,
            forward[0] * 1 - forward[1] * 0)  # forward x up
    length = math.sqrt(sum(v * v for v in side))
    side = tuple(v / length for v in side)
    # A world axis on the screen: its part along the view's right and up directions.
    up = (side[1] * forward[2] - side[2] * forward[1], side[2] * forward[0] - side[0] * forward[2],
          side[0] * forward[1] - side[1] * forward[0])
    axis = 0 if math.hypot(side[0], up[0]) >= math.hypot(side[2], up[2]) else 2
    dx, dy = side[axis], up[axis]
    norm = math.hypot(dx, dy)
    size_px = min(max(0.18 * height, 48.0), 140.0)
    return (width / 2.0 + 0.8 * size_px * dx / norm, height / 2.0 + 0.8 * size_px * dy / norm,
            dx / norm, dy / norm)


def measure(binary, scene, width, height, seconds, preview_path, previews):
    viewport = Viewport(binary)
    try:
        started = time.perf_counter()
        viewport.open_scene(scene, width, height)
        viewport.next_frame()
        first_frame = time.perf_counter() - started
        viewport.take_timings()

        frames = 0
        started = time.perf_counter()
        while time.perf_counter() - started < seconds or frames < 5:
            viewport.send("gesture|orbit|1.0|0.0")
            viewport.next_frame()
            frames += 1
        fps = frames / (time.perf_counter() - started)
        time.sleep(0.05)  # the last acknowledgement reaches the runtime
        timings = viewport.take_timings()
        render = [t[0] for t in timings]
        out = [t[1] for t in timings]

        latencies = []
        for i in range(previews):
            value = "%.1f,%.1f,%.1f" % (0.1 * (i + 1), 0.5, 0.0)
            sent = time.perf_counter()
            viewport.send("property-preview|%s|Transform|translation|%s|0" % (preview_path, value))
            viewport.next_frame()
            latencies.append((time.perf_counter() - sent) * 1000.0)
        viewport.send("property-preview|%s|Transform|translation||1" % preview_path)
        viewport.send("selection|%s" % preview_path)
        viewport.send("frame|selection")
        viewport.send("camera-query")
        camera = viewport.next_line("freeCameraState")
        x, y, dx, dy = handle_pixel(camera, width, height)
        drag = []
        viewport.send("down|%.1f|%.1f|0|0" % (x, y))
        for i in range(1, previews + 1):
            sent = time.perf_counter()
            viewport.send("move|%.1f|%.1f|0|0" % (x + 4 * i * dx, y + 4 * i * dy))
            line = viewport.next_line("transformCommit")
            drag.append((time.perf_counter() - sent) * 1000.0)
        viewport.send("up|%.1f|%.1f|0|0" % (x + 4 * previews * dx, y + 4 * previews * dy))
        line = viewport.next_line("transformCommit")
        if not line.get("final"):
            raise RuntimeError("the drag ended without its final line")
        return {
            "first": first_frame, "fps": fps, "frames": frames,
            "render": render, "out": out, "preview": latencies, "drag": drag,
        }
    finally:
        viewport.close()


def measure_server(binary, project, scene, width, height, moved_path, edits, workdir):
    server = subprocess.Popen(
        [os.path.join(binary, "orvan_project_server"), "--project", project, "--port", "0",
         "--state-dir", os.path.join(workdir, "state-%d" % free_port())],
        stdout=subprocess.PIPE, text=True)
    viewport = None
    try:
        base = server.stdout.readline().strip().split("listening on ")[1]
        address = base.replace("http://", "grpc://")
        viewport = Viewport(binary)
        started = time.perf_counter()
        viewport.open_scene(scene, width, height, address)
        viewport.next_frame()
        first_frame = time.perf_counter() - started
        latencies = []
        for i in range(edits):
            sent = time.perf_counter()
            subprocess.run(
                [os.path.join(binary, "orvan_edit_client"), "--json", "--author", "Bench",
                 "--workspace", "main", "--client-id", "bench", "--scene", scene, address, "0",
                 "--component-op", "set", moved_path, "Transform", "translation",
                 "%.1f,0.5,0.0" % (0.2 * (i + 1))], check=True, stdout=subprocess.DEVNULL)
            viewport.next_frame()
            latencies.append((time.perf_counter() - sent) * 1000.0)
        return first_frame, latencies
    finally:
        if viewport:
            viewport.close()
        server.terminate()
        server.wait(timeout=60)


def show(name, width, height, result):
    print("%-22s %5dx%-5d first frame %7.0f ms  %6.1f fps (%d frames)" % (
        name, width, height, result["first"] * 1000.0, result["fps"], result["frames"]))
    if result["render"]:
        print("%-22s             draw p50 %6.1f ms p99 %6.1f ms;  surface out p50 %6.2f ms "
              "p99 %6.2f ms" % ("", percentile(result["render"], 0.5),
                                 percentile(result["render"], 0.99),
                                 percentile(result["out"], 0.5), percentile(result["out"], 0.99)))
    if result["preview"]:
        print("%-22s             preview to frame p50 %7.1f ms p99 %7.1f ms (%d previews)" % (
            "", statistics.median(result["preview"]), percentile(result["preview"], 0.99),
            len(result["preview"])))
    if result["drag"]:
        print("%-22s             gizmo move to transformCommit p50 %7.1f ms p99 %7.1f ms "
              "(%d moves)" % ("", statistics.median(result["drag"]),
                              percentile(result["drag"], 0.99), len(result["drag"])))


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default=os.path.join(root, "build", "release", "full-demo"))
    parser.add_argument("--sizes", default="1280x720,1920x1080")
    parser.add_argument("--seconds", type=float, default=5.0)
    parser.add_argument("--generated", type=int, default=100000)
    parser.add_argument("--previews", type=int, default=10)
    parser.add_argument("--server", action="store_true")
    parser.add_argument("--edits", type=int, default=5)
    args = parser.parse_args()
    sizes = [tuple(int(v) for v in size.split("x")) for size in args.sizes.split(",")]

    with tempfile.TemporaryDirectory(prefix="orvan_viewport_bench_") as workdir:
        demo = os.path.join(workdir, "demo")
        shutil.copytree(os.path.join(root, "demo"), demo,
                        ignore=shutil.ignore_patterns(".orvan"))
        scenes = [("demo", os.path.join(demo, "hello_world.usda"), "/World/RedCube")]
        if args.generated > 0:
            os.makedirs(os.path.join(workdir, "generated"))
            with open(os.path.join(workdir, "generated", "project.json"), "w") as out:
                out.write('{"id": "bench", "name": "Bench", "mainScene": "generated.usda"}')
            generated = os.path.join(workdir, "generated", "generated.usda")
            subprocess.run([os.path.join(args.bin, "orvan_project_tool"), "generate",
                            str(args.generated), generated], check=True,
                           stdout=subprocess.DEVNULL)
            scenes.append(("generated %d" % args.generated, generated,
                           "/World/Zone_0/Cluster_0/Cube_0"))
        for name, scene, preview_path in scenes:
            for width, height in sizes:
                result = measure(args.bin, scene, width, height, args.seconds, preview_path,
                                 args.previews)
                show(name, width, height, result)
            if args.server:
                width, height = sizes[0]
                first, edits = measure_server(args.bin, os.path.dirname(scene), scene, width,
                                              height, preview_path, args.edits, workdir)
                print("%-22s %5dx%-5d through the server: first frame %7.0f ms; edit to frame "
                      "p50 %7.1f ms max %7.1f ms (%d edits)" % (
                          name, width, height, first * 1000.0, statistics.median(edits),
                          max(edits), len(edits)))


if __name__ == "__main__":
    main()
