#!/usr/bin/env python3
"""Writes the speech model's provenance record from a downloaded snapshot folder: the size and
SHA-256 of each of the pinned files of the model and tokenizer repositories. Run it on a
snapshot fetched at the pinned revisions; the program ships without a record until then.

    write-model-provenance.py SNAPSHOT_DIR > voice/resources/quicktask-model-provenance.json

SNAPSHOT_DIR holds the model directory and models/openai/whisper-large-v3/ as the download
leaves them."""

import hashlib
import json
import os
import sys

MODEL = {
    "repository": "argmaxinc/whisperkit-coreml",
    "revision": "0f63a7800b00dd0226abd051b906c246e1907482",
    "directory": "openai_whisper-large-v3-v20240930_626MB",
}
TOKENIZER = {
    "repository": "openai/whisper-large-v3",
    "revision": "06f233fe06e710322aca913c1bc4249a0d71fce1",
    "directory": "models/openai/whisper-large-v3",
}
MODEL_FILES = [f"{name}.mlmodelc/{part}"
               for name in ("MelSpectrogram", "AudioEncoder", "TextDecoder")
               for part in ("analytics/coremldata.bin", "coremldata.bin", "metadata.json",
                            "model.mil", "weights/weight.bin")] + ["config.json",
                                                                     "generation_config.json"]
TOKENIZER_FILES = ["tokenizer.json", "tokenizer_config.json"]


def digest(path):
    sha = hashlib.sha256()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            sha.update(block)
    return sha.hexdigest()


def artifact(root, pinned, files):
    folder = os.path.join(root, pinned["directory"])
    entries = []
    for name in files:
        path = os.path.join(folder, name)
        if not os.path.isfile(path) or os.path.islink(path):
            sys.exit(f"missing or not a regular file: {path}")
        entries.append({"path": name, "byteCount": os.path.getsize(path), "sha256": digest(path)})
    return dict(pinned, files=entries)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = sys.argv[1]
    record = {"schemaVersion": 1, "model": artifact(root, MODEL, MODEL_FILES),
              "tokenizer": artifact(root, TOKENIZER, TOKENIZER_FILES)}
    json.dump(record, sys.stdout, indent=2)
    sys.stdout.write("\n")


if __name__ == "__main__":
    main()
