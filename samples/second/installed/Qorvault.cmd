@echo 3.9.0
