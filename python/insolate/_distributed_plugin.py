"""What Dask starts on each worker."""

from __future__ import annotations

from distributed import WorkerPlugin

from . import _core
from ._distributed_work import Scenes


class ScenesPlugin(WorkerPlugin):  # type: ignore[misc, unused-ignore]
    """Keeps the scene of a worker between its blocks; workers that come later get it too."""

    def __init__(self, version: str) -> None:
        self.version = version
        self.scenes = Scenes.__new__(Scenes)

    def setup(self, worker: object) -> None:
        if _core.version != self.version:
            raise RuntimeError(
                f"this worker has insolate {_core.version}, the client {self.version}: results would differ; "
                "install the same version"
            )
        import zarr  # noqa: F401  # takes half a second, which the first block need not wait for

        self.scenes = Scenes()

    def __getstate__(self) -> dict[str, str]:
        return {"version": self.version}

    def __setstate__(self, state: dict[str, str]) -> None:
        self.__init__(state["version"])  # type: ignore[misc]
