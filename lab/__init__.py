"""Equipment for trial runs: simulated modules, packages, expected flash, servers, certificates.

Programs that use it are started with the top folder on PYTHONPATH, as ./dev does.
"""
