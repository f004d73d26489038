"""What both Codex end-to-end drivers share: the offline configuration, the pinned CLI's
installation and the failure type."""

import subprocess

SKIP = 77

CONFIG = """\
model = "gpt-mock"
model_provider = "mock"
approval_policy = "never"
sandbox_mode = "danger-full-access"
check_for_update_on_startup = false
web_search = "disabled"

[model_providers.mock]
name = "Mock"
base_url = "http://127.0.0.1:{port}/v1"
wire_api = "responses"
env_key = "MOCK_API_KEY"
request_max_retries = 0
stream_max_retries = 0
stream_idle_timeout_ms = 20000

[analytics]
enabled = false

[feedback]
enabled = false

# These reach out to the network at start-up; the run must stay on loopback.
[features]
plugins = false
remote_plugin = false
apps = false
plugin_sharing = false
api_key_model_discovery = false
"""


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def install_codex(installer):
    """The pinned CLI's path, or None when the npm registry could not be reached."""
    result = subprocess.run(["bash", installer, "codex"], stdout=subprocess.PIPE, text=True,
                            timeout=900)
    if result.returncode == SKIP:
        return None
    check(result.returncode == 0, f"installing the Codex CLI failed with {result.returncode}")
    return result.stdout.strip().splitlines()[-1]
