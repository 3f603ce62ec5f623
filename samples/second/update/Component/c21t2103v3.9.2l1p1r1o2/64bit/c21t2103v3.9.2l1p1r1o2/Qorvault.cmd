@echo 3.9.2
