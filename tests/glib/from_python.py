# SPDX-License-Identifier: MIT
"""Operations of the binding as calls that wait, for the tests."""
import gi

gi.require_version("MorvaneOperation", "1.0")
from gi.repository import GLib, Gio, MorvaneOperation as Morvane  # noqa: E402

NEVER = Morvane.Privilege.NEVER


class Client:
    def __init__(self):
        self.client = Morvane.FileClient()

    def __getattr__(self, name):
        """wait.read_acl(...): what read_acl_finish() gives."""
        def call(*arguments):
            loop, results = GLib.MainLoop(), []

            def come(_source, result):
                results.append(result)
                loop.quit()
            getattr(self.client, name + "_async")(*arguments, come)
            assert not results, "the callback came inside the call"
            loop.run()
            return getattr(self.client, name + "_finish")(results[0])
        return call

    def read(self, path, privilege=NEVER):
        return self.read_acl(Gio.File.new_for_path(path), privilege, None)
