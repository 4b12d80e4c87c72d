"""Files of S3 for fsspec, by boto3, where fsspec's own driver (s3fs) is not installed, as on Debian 12."""

import threading
from typing import Any

import boto3
from boto3.s3.transfer import TransferConfig
from botocore.exceptions import ClientError
from fsspec import AbstractFileSystem

__all__ = ["S3FileSystem"]

_making = threading.Lock()  # Sessions of boto3 are made by one thread at a time.


class S3FileSystem(AbstractFileSystem):
    """Whole objects: told of, read from the start, put. The options are named as those of s3fs.

    key, secret, token: the credentials; when not given, what boto3 finds: environment, files, the machine's role.
    endpoint_url: of the service, where it is none of Amazon's.
    client_kwargs: more for boto3's client, such as {"region_name": "eu-central-1"}.
    """

    protocol = ("s3", "s3a")

    def __init__(
        self,
        *,
        key: str | None = None,
        secret: str | None = None,
        token: str | None = None,
        endpoint_url: str | None = None,
        client_kwargs: dict[str, Any] | None = None,
        **options: Any,
    ) -> None:
        super().__init__(**options)
        given = {"endpoint_url": endpoint_url, **(client_kwargs or {})}
        with _making:
            session = boto3.session.Session(key, secret, token)
            self._client = session.client("s3", **given)

    def info(self, path: str, **_: Any) -> dict[str, Any]:
        """Size, ETag and date of an object."""
        head = _tell(self._client.head_object, path)
        name, date = self._strip_protocol(path), head["LastModified"]
        return {"name": name, "type": "file", "size": head["ContentLength"], "ETag": head["ETag"], "LastModified": date}

    def ls(self, path: str, detail: bool = True, **_: Any) -> list[Any]:
        """The objects whose names begin with `path`, and the object itself."""
        bucket, prefix = _split(path)
        found = []
        for page in self._client.get_paginator("list_objects_v2").paginate(Bucket=bucket, Prefix=prefix):
            for entry in page.get("Contents", []):
                name, size = f"{bucket}/{entry['Key']}", entry["Size"]
                found.append({"name": name, "type": "file", "size": size, "ETag": entry["ETag"]} if detail else name)
        return found

    def put_file(self, lpath: str, rpath: str, **_: Any) -> None:
        """Puts a file; in parts where it is large. Nothing is there before it is whole."""
        bucket, key = _split(rpath)
        self._client.upload_file(lpath, bucket, key, Config=TransferConfig(use_threads=False))

    def rm_file(self, path: str) -> None:
        """Removes an object."""
        _tell(self._client.delete_object, path)

    def _open(self, path: str, mode: str = "rb", **_: Any) -> Any:
        if mode != "rb":
            raise NotImplementedError("objects are put as files")
        return _tell(self._client.get_object, path)["Body"]


def _split(path: str) -> tuple[str, str]:
    bucket, _, key = S3FileSystem._strip_protocol(path).partition("/")
    return bucket, key


def _tell(call: Any, path: str) -> Any:
    """What the service answers of an object, FileNotFoundError where there is none."""
    bucket, key = _split(path)
    try:
        return call(Bucket=bucket, Key=key)
    except ClientError as error:
        if error.response["Error"]["Code"] in ("404", "NoSuchKey", "NoSuchBucket"):
            raise FileNotFoundError(path) from error
        raise
