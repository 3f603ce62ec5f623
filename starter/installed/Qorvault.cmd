@echo off
rem 3.9.3.1139
