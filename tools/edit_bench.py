#!/usr/bin/env python3
"""Edit latency of the reference engine, end to end: a real project server on a generated scene,
a warm `orvan_edit_client --stdio`, and the files on disk.

  tools/edit_bench.py [--bin DIR] [--sizes 10000,100000,1000000] [--edits N]

For each scene size it prints the round trip of a property set and of a prim add through the
helper (p50, p99), how long the scene file takes to hold the last edit, the time of
GET /api/stage right after a one-property edit (up to 100,000 prims), and the edits per second
of eight helpers at once.
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(fraction * len(ordered)))]


class Helper:
    """One warm edit helper on its pipes."""

    def __init__(self, binary, address, scene, client):
        self.process = subprocess.Popen(
            [os.path.join(binary, "orvan_edit_client"), "--stdio", "--author", "Bench",
             "--client-id", client, "--scene", scene, "--workspace", "main", address],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
        self.send("ping")

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        reply = json.loads(self.process.stdout.readline())
        return reply

    def timed(self, line):
        started = time.perf_counter()
        reply = self.send(line)
        elapsed = (time.perf_counter() - started) * 1000.0
        if not reply.get("accepted"):
            raise RuntimeError("refused: %s -> %s" % (line, reply.get("message")))
        return elapsed

    def close(self):
        self.process.stdin.write("quit\n")
        self.process.stdin.flush()
        self.process.wait(timeout=30)


def run_size(binary, size, edits, workdir):
    project = os.path.join(workdir, "p%d" % size)
    os.makedirs(project)
    with open(os.path.join(project, "project.json"), "w") as out:
        out.write('{"id": "bench", "name": "Bench", "mainScene": "scene.usda"}')
    scene = os.path.join(project, "scene.usda")
    subprocess.run([os.path.join(binary, "orvan_project_tool"), "generate", str(size), scene],
                   check=True, stdout=subprocess.DEVNULL)
    server = subprocess.Popen(
        [os.path.join(binary, "orvan_project_server"), "--project", project, "--port", "0",
         "--state-dir", os.path.join(workdir, "state")],
        stdout=subprocess.PIPE, text=True)
    try:
        line = server.stdout.readline().strip()
        base = line.split("listening on ")[1]
        address = base.replace("http://", "grpc://")
        helper = Helper(binary, address, scene, "bench-0")
        target = "/World/Zone_0/Cluster_0/Cube_0"
        started = time.perf_counter()
        helper.timed("usd-property\t0\tset\t%s\tsize\t1.5" % target)
        first = time.perf_counter() - started  # loads the scene into the server
        sets = [helper.timed("usd-property\t0\tset\t%s\tsize\t%s" % (target, 1 + i * 0.001))
                for i in range(edits)]
        adds = [helper.timed("prims\t0\t1\tadd\t/World/Zone_0\tBench_%d\tcube" % i)
                for i in range(edits)]
        last_edit = time.perf_counter()
        marker = '"Bench_%d"' % (edits - 1)
        catch_up = None
        while time.perf_counter() - last_edit < 30:
            with open(scene, encoding="utf-8", errors="replace") as text:
                if marker in text.read():
                    catch_up = time.perf_counter() - last_edit
                    break
            time.sleep(0.02)

        stage_times = []
        if size <= 100000:
            urllib.request.urlopen(base + "/api/stage").read()  # the inspector's first pass
            for i in range(5):
                helper.timed("usd-property\t0\tset\t%s\tsize\t%s" % (target, 2 + i * 0.01))
                started = time.perf_counter()
                body = urllib.request.urlopen(base + "/api/stage").read()
                stage_times.append((time.perf_counter() - started) * 1000.0)
            stage_bytes = len(body)
        helper.close()

        helpers = [Helper(binary, address, scene, "bench-%d" % (i + 1)) for i in range(8)]
        per_client = max(50, edits // 2)
        errors = []

        def drive(index, each):
            try:
                for i in range(per_client):
                    each.timed("usd-property\t0\tset\t/World/Zone_0/Cluster_0/%s\t%s\t%s" % (
                        ["Cube_0", "Sphere_1", "Cone_2", "Cylinder_3", "Capsule_4", "Plane_5",
                         "Cube_6", "Sphere_7"][index],
                        ["size", "radius", "height", "height", "height", "width", "size",
                         "radius"][index], 1 + (i + 1) * 0.001))
            except Exception as failure:  # noqa: BLE001 - reported below
                errors.append(str(failure))

        threads = [threading.Thread(target=drive, args=(i, h)) for i, h in enumerate(helpers)]
        started = time.perf_counter()
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        rate = 8 * per_client / (time.perf_counter() - started)
        for each in helpers:
            each.close()
        if errors:
            print("  eight clients: %d failures, first: %s" % (len(errors), errors[0]))

        print("| %d | %.2f s | %.2f / %.2f ms | %.2f / %.2f ms | %s | %s | %.0f |" % (
            size, first, percentile(sets, 0.5), percentile(sets, 0.99), percentile(adds, 0.5),
            percentile(adds, 0.99),
            "%.2f s" % catch_up if catch_up is not None else "not within 30 s",
            "%.0f ms (%d MB)" % (statistics.median(stage_times), stage_bytes >> 20)
            if stage_times else "-", rate))
        sys.stdout.flush()
    finally:
        server.terminate()
        server.wait(timeout=60)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser()
    parser.add_argument("--bin", default=os.path.join(here, "..", "build", "release", "full-demo"))
    parser.add_argument("--sizes", default="10000,100000,1000000")
    parser.add_argument("--edits", type=int, default=200)
    arguments = parser.parse_args()
    workdir = tempfile.mkdtemp(prefix="orvan_edit_bench_")
    try:
        print("| prims | first edit (loads) | property set p50 / p99 | prim add p50 / p99 | "
              "file holds the last edit after | GET /api/stage after an edit | edits/s, 8 clients |")
        print("|---|---|---|---|---|---|---|")
        for size in [int(each) for each in arguments.sizes.split(",")]:
            run_size(arguments.bin, size, arguments.edits, workdir)
    finally:
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == "__main__":
    main()
