// Starts other processes: a shell that lists the log files it was handed open
// ("fds"), or a copy of this program that runs while this one waits ("copy").
using System.Diagnostics;

namespace Spawner
{
    public static class Program
    {
        public static int Main(string[] args)
        {
            string mode = args.Length > 0 ? args[0] : "";
            if (mode == "fds")
            {
                string listing = Run("/bin/sh", "-c", "for f in /proc/$$/fd/*; do readlink \"$f\"; done");
                int logs = listing.Split('\n').Count(line => line.EndsWith(".log"));
                Console.WriteLine("log files open in a child shell: " + logs);
                return 0;
            }
            if (mode == "copy")
            {
                string copy = Run(Environment.ProcessPath, typeof(Program).Assembly.Location, "child");
                Console.WriteLine("the copy said: " + copy.Trim());
                return 0;
            }
            Console.WriteLine("a copy at work");
            return 0;
        }

        static string Run(string program, params string[] arguments)
        {
            var start = new ProcessStartInfo(program) { RedirectStandardOutput = true };
            foreach (string argument in arguments)
                start.ArgumentList.Add(argument);
            using Process process = Process.Start(start);
            string output = process.StandardOutput.ReadToEnd();
            process.WaitForExit();
            return output;
        }
    }
}
