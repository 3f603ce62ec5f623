@echo off
rem 3.9.3.1140: put the programs here in place of this file.
