@echo off
rem Checks how this Windows answers to Tessel. check.cmd /help tells more.
setlocal
set "kit=%~dp0"
if not exist "%kit%kit.exe" goto alone
"%kit%kit.exe" %*
set "code=%errorlevel%"
if %code% GTR 2 goto blocked
if %code% LSS 0 goto blocked
goto end

:alone
echo The rest of the kit isn't beside check.cmd. Unpack the whole ZIP first
echo ^(right-click it, Extract All^), and run check.cmd in the new folder.
set code=2
goto end

:blocked
echo.
echo kit.exe could not run to its end ^(code %code%^). If Windows has blocked it because it
echo was downloaded: right-click the ZIP, Properties, Unblock, and unpack it again.
echo Otherwise run check.cmd /undo as an administrator, which removes what it left.

:end
rem A window that Explorer has opened would be gone before anybody has read it.
if "%~1"=="" pause
exit /b %code%
