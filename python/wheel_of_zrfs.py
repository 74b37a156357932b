# SPDX-License-Identifier: MIT
"""Makes the wheel of the package for pip. It holds the package's files and what pip wants to know of
them; the version is that of the library's headers."""
import base64
import hashlib
import pathlib
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
METADATA = HERE.parent / "cmake" / "PythonMetadata.in"


def _version():
    scope = {"__file__": str(HERE / "zrfs" / "_version.py")}
    exec((HERE / "zrfs" / "_version.py").read_text(encoding="utf-8"), scope)
    return scope["version"]


def _add(wheel, record, name, data):
    info = zipfile.ZipInfo(name)  # 1980, so that the same files make the same wheel
    info.external_attr = 0o644 << 16
    info.compress_type = zipfile.ZIP_DEFLATED
    wheel.writestr(info, data)
    digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
    record.append(f"{name},sha256={digest},{len(data)}\n")


def _build(folder, files):
    version = _version()
    name, about = f"zrfs-{version}-py3-none-any.whl", f"zrfs-{version}.dist-info"
    metadata = METADATA.read_text(encoding="utf-8").replace("@PROJECT_VERSION@", version)
    record = []
    with zipfile.ZipFile(pathlib.Path(folder) / name, "w") as wheel:
        for target, data in files:
            _add(wheel, record, target, data)
        _add(wheel, record, f"{about}/METADATA", metadata.encode())
        _add(wheel, record, f"{about}/WHEEL", b"Wheel-Version: 1.0\nGenerator: zrfs\n"
             b"Root-Is-Purelib: true\nTag: py3-none-any\n")
        record.append(f"{about}/RECORD,,\n")
        wheel.writestr(f"{about}/RECORD", "".join(record))
    return name


def build_wheel(folder, config_settings=None, metadata_directory=None):
    package = sorted((HERE / "zrfs").glob("*.py")) + [HERE / "zrfs" / "py.typed"]
    return _build(folder, [(f"zrfs/{file.name}", file.read_bytes()) for file in package])


def build_editable(folder, config_settings=None, metadata_directory=None):
    return _build(folder, [("zrfs.pth", f"{HERE}\n".encode())])
