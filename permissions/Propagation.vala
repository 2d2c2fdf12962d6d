// SPDX-License-Identifier: MIT
namespace Permissions {

/* Gives everything inside some folders what it inherits of their lists, and shows how far that is. */
public class Propagation : Object {
    /* What of it failed: a list of Morvane.Failure, of which there may be fewer than `failed` counts. */
    public ListStore failures { get; private set; }
    public uint64 failed { get; private set; }
    /* The last error; null if all was done. */
    public string? problem { get; private set; default = null; }
    /* Why there was no administrator's right, or no helper; null if there were both, or neither was needed. */
    public string? refusal { get; private set; default = null; }
    /* Whether the user has ended the work. */
    public bool was_stopped { get; private set; default = false; }

    construct {
        failures = new ListStore(typeof(Morvane.Failure));
    }

    public async void run(Gtk.Window parent, Morvane.FileClient client, Morvane.Acl[] acls) {
        var cancellable = new Cancellable();
        var window = new ProgressWindow(parent, cancellable);
        window.present();
        foreach (var acl in acls) {
            var progress = new Morvane.Progress();
            window.follow(progress);
            try {
                yield client.propagate_acl_async(acl, Morvane.Privilege.WHEN_REFUSED, progress, cancellable);
            } catch (Error error) {
                was_stopped = (error is Morvane.Error.DISMISSED) || (error is IOError.CANCELLED);
                if (!was_stopped)
                    problem = error.message;
                // Others are about the items.
                if (!was_stopped && (error is Morvane.Error) && !(error is Morvane.Error.LOSSES))
                    refusal = error.message;
            }
            for (uint i = 0; i != progress.failures.get_n_items(); ++i)
                failures.append(progress.failures.get_item(i));
            if (was_stopped)
                break;
        }
        failed = window.failed;
        window.end();
    }
}

}
