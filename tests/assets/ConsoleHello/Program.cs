namespace Hello
{
    public static class Program
    {
        public static int Main(string[] args)
        {
            System.Console.WriteLine("hello");
            return 0;
        }
    }
}
