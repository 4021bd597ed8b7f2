#!/usr/bin/env python3
"""Writes a small but real offline installer: the unpacked tree and, with --iso, its ISO image.

    OUT/sample/data/          the unpacked installer (give this directory to --offline-installer)
    OUT/sample/packages/      the add-on packages
    OUT/sample.iso            the same as an image made by xorriso (--iso)

The layout is documented in docs/offline-installer.md. The content is the same on every run for
the same arguments, so digests and sizes can be relied upon.
"""

import argparse
import base64
import hashlib
import json
import os
import random
import shutil
import subprocess
import sys
import zipfile

FOLDERS = ["bin", "lib", "lib/plugins", "share/orvanis", "share/orvanis/icons", "share/orvanis/scripts",
           "share/doc", "config", "python/orvanis", "python/orvanis/tools"]


def file_sizes(count, total, rng):
    """Mixed sizes: empty files, many small ones and a few large ones, adding up to about `total`."""
    weights = [0 if i % 37 == 0 else rng.choice([1, 1, 1, 2, 4, 16, 64]) for i in range(count)]
    unit = total / max(1, sum(weights))
    return [int(w * unit * rng.uniform(0.5, 1.5)) for w in weights]


def store(data, content):
    """Stores the content under its digest, once however many files have it; the manifest entry."""
    digest = hashlib.sha256(content).digest()
    source = "payload/%s/%s" % (digest.hex()[:2], digest.hex())
    target = os.path.join(data, source)
    if not os.path.exists(target):
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as stream:
            stream.write(content)
    return [source, base64.b64encode(digest).decode(), len(content)]


def write_payload(data, count, total, rng):
    """The product's files, with the manifest that lists them."""
    manifest = {}
    for index, size in enumerate(file_sizes(count, total, rng)):
        path = "%s/file%05d.%s" % (FOLDERS[index % len(FOLDERS)], index, ["bin", "txt", "py", "so"][index % 4])
        manifest[path] = store(data, rng.randbytes(size))
    return manifest


def write_manifest(data, name, manifest):
    with open(os.path.join(data, name), "w") as stream:
        json.dump(manifest, stream, sort_keys=True)
    return name


def product(data, version, tags, count, total, rng, pdb_files=3):
    files = write_manifest(data, "orvanis-%s.files" % version, write_payload(data, count, total, rng))
    pdb = {"debug/orvanis%d.pdb" % index: store(data, rng.randbytes(1024 * (index + 1))) for index in range(pdb_files)}
    return {"name": "Orvanis", "version": version, "minimum launcher version": "21.0.1", "files": files,
            "os name": "linux_x86_64", "compiler": "gcc12", "release date": "2026-10-01", "tags": tags,
            "features": [{"name": "PDB Files", "files": write_manifest(data, "orvanis-%s-pdb.files" % version, pdb)}]}


def write_package(root, rng):
    packages = os.path.join(root, "packages")
    os.makedirs(packages)
    with zipfile.ZipFile(os.path.join(packages, "sample-tools.zip"), "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("sample-tools.json", json.dumps({"name": "sample-tools", "version": "1.0"}))
        archive.writestr("sample-tools/", "")
        archive.writestr("sample-tools/tools/hello.py", "print('hello from a package')\n")
        archive.writestr("sample-tools/README.txt", rng.randbytes(2048).hex())
    with open(os.path.join(packages, "packages.json"), "w") as stream:
        json.dump({"packages": [{"name": "sample-tools", "display_name": "Sample Tools", "version": "1.0",
                                 "description": "Example tools shipped beside the product"}]}, stream)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("out", help="directory to write into; replaced if it holds an earlier sample")
    parser.add_argument("--files", type=int, default=300, help="files of each build (default 300)")
    parser.add_argument("--size", type=int, default=4 << 20, help="bytes of each build (default 4 MiB)")
    parser.add_argument("--versions", type=int, default=2, choices=[1, 2], help="builds of the product (default 2)")
    parser.add_argument("--pdb-files", type=int, default=3, help="files of the feature \"PDB Files\" (default 3)")
    parser.add_argument("--iso", action="store_true", help="also write OUT/sample.iso with xorriso")
    arguments = parser.parse_args()

    root = os.path.join(arguments.out, "sample")
    shutil.rmtree(root, ignore_errors=True)
    data = os.path.join(root, "data")
    os.makedirs(data)
    rng = random.Random(20261124)
    builds = [("21.0.512", ["Production"]), ("21.0.600", ["Beta"])][:arguments.versions]
    products = [product(data, version, tags, arguments.files, arguments.size, rng, arguments.pdb_files)
                for version, tags in builds]
    with open(os.path.join(data, "overview.json"), "w") as stream:
        json.dump({"format version": 1, "release_type": "gold", "products": products}, stream, indent=1)
    write_package(root, rng)

    if arguments.iso:
        image = os.path.join(arguments.out, "sample.iso")
        if os.path.exists(image):
            os.remove(image)
        subprocess.run(["xorriso", "-as", "mkisofs", "-quiet", "-R", "-J", "-o", image, root], check=True)

    # An unpacked installer names its files from its data folder, the image's names begin with
    # "data/": the links let both resolve in the directory. Made after the image, which must not
    # hold them.
    os.symlink(".", os.path.join(data, "data"))
    os.symlink("../packages", os.path.join(data, "packages"))
    print(data)


if __name__ == "__main__":
    sys.exit(main())
