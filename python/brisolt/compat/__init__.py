"""Programs that `import serial` run on brisolt as they are: python3 -m brisolt.compat PROGRAM ARGUMENTS...

The folder `path` goes in front of the module path; in it `serial` stands for `brisolt.serial`.
"""
